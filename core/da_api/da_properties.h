// The numbered properties of the DA-API, the values some of them take, and this implementation's extensions.
#pragma once

#include <cstdint>

#include "core/da_api/da_api.h"

namespace DaApi::Prop {

// Selection: written with DaSetProperty.
inline constexpr PropertyId kSelectComputer = 103;     // value 54: make this machine current
inline constexpr PropertyId kReleaseComputer = 99;     // value 54: release the computer selection
inline constexpr PropertyId kSelectDiskNumber = 200;   // value: a disk number (property 73)
inline constexpr PropertyId kDropDisk = 10;            // value 0
inline constexpr PropertyId kDropVolumeGroup = 186;    // value 0
inline constexpr PropertyId kNextObject = 25;          // value 0; then read kObjectHandle (0 past the last)
inline constexpr PropertyId kNextVolumeObject = 24;    // value 0; inside the current volume
inline constexpr PropertyId kContextA = 204;           // accepted and ignored
inline constexpr PropertyId kContextB = 206;           // accepted and ignored
inline constexpr PropertyId kDriveLetterView = 207;    // 0 (this system), 3, 7 or 8
inline constexpr PropertyId kNumbering = 210;          // 2: operating-system numbering for kOsPartitionNumber
inline constexpr PropertyId kRequestCheck = 36;        // value 0: check the current object's file system

// Computer level.
inline constexpr PropertyId kComputerName = 54;        // 8-bit text
inline constexpr PropertyId kComputerError = 113;      // message identifier, see MessageText; 0 = none
inline constexpr PropertyId kOsKind = 176;             // OsKind
inline constexpr PropertyId kFirmwareKind = 239;       // FirmwareKind
inline constexpr PropertyId kPrimaryGroupGuid = 375;   // 8-bit text (absent here)
inline constexpr PropertyId kPrimaryGroupName = 376;   // 8-bit text (absent here)

// Disk level (the current disk).
inline constexpr PropertyId kGptAlsoMbr = 52;          // GPT disk whose sector 0 holds a protective/hybrid MBR
inline constexpr PropertyId kDiskHandle = 67;          // read; write a handle (or 0) to select
inline constexpr PropertyId kBiosNumber = 70;          // 0x80 is the first disk; see kHasBiosNumber
inline constexpr PropertyId kDiskNumber = 73;
inline constexpr PropertyId kStorageSpace = 75;        // 8-bit text
inline constexpr PropertyId kDiskError = 114;          // message identifier of the disk's last error; 0 = none
inline constexpr PropertyId kInVolumeGroup = 266;
inline constexpr PropertyId kController = 271;         // 8-bit text
inline constexpr PropertyId kDeviceName = 274;         // 8-bit text (UTF-8): image file name or device path
inline constexpr PropertyId kGptDiskGuid = 276;        // 8-bit text, "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX"
inline constexpr PropertyId kGroupName = 277;          // volume group, 8-bit text
inline constexpr PropertyId kGroupId = 278;            // volume group, 8-bit text
inline constexpr PropertyId kHasBiosNumber = 279;
inline constexpr PropertyId kHwSerial = 281;           // 8-bit text
inline constexpr PropertyId kInterface = 282;          // Interface
inline constexpr PropertyId kScsiHost = 283;
inline constexpr PropertyId kScsiBus = 284;
inline constexpr PropertyId kScsiTarget = 285;
inline constexpr PropertyId kLogicalSectorOffset = 297;  // alignment offset, in logical sectors
inline constexpr PropertyId kModel = 298;              // 8-bit text
inline constexpr PropertyId kPhysicalSectorSize = 304;
inline constexpr PropertyId kSchemeKind = 305;         // SchemeKind
inline constexpr PropertyId kLastSector = 306;         // last sector number (sector count - 1; all ones when empty)
inline constexpr PropertyId kSystemName = 307;         // 8-bit text
inline constexpr PropertyId kSchemeState = 309;        // SchemeState; also of an unallocated object
inline constexpr PropertyId kIsVolumeGroup = 311;
inline constexpr PropertyId kCylinders = 353;
inline constexpr PropertyId kHeads = 355;
inline constexpr PropertyId kSectorsPerTrack = 356;
inline constexpr PropertyId kLogicalSectorSize = 380;

// Object level (the current object).
inline constexpr PropertyId kActive = 2;
inline constexpr PropertyId kSkip = 8;
inline constexpr PropertyId kCheckCount = 35;
inline constexpr PropertyId kPartitionNumber = 66;     // 0 for objects that are not partitions
inline constexpr PropertyId kGptTypeGuid = 82;         // 8-bit text
inline constexpr PropertyId kHidden = 83;              // 0 visible, 2 no drive letter by the OS, 1 hidden
inline constexpr PropertyId kObjectHandle = 84;        // read; write a handle (or 0) to select
inline constexpr PropertyId kVolumeHandle = 85;        // a partition's own handle when it has a file system or a mount; writable
inline constexpr PropertyId kVolumeLabel = 86;         // 16-bit text
inline constexpr PropertyId kDriveLetter = 89;         // character code under the view of kDriveLetterView
inline constexpr PropertyId kObjectError = 115;        // message identifier of the object's first error
inline constexpr PropertyId kTypeByte = 117;           // MBR type byte; for GPT the nearest MBR byte, or 0
inline constexpr PropertyId kGptMetadataKind = 131;    // GptMetadataKind
inline constexpr PropertyId kFsType = 137;             // FsType (values in core/disk/partition_types.h)
inline constexpr PropertyId kExtendedTable = 160;
inline constexpr PropertyId kSectorCount = 163;
inline constexpr PropertyId kCheckAuthoritative = 190;
inline constexpr PropertyId kContainerKind = 219;
inline constexpr PropertyId kSchemeTypeByte = 308;     // MBR: the type byte; GPT: 0xEE
inline constexpr PropertyId kFsSectors = 322;
inline constexpr PropertyId kWarnings = 323;           // FsWarning bits; non-zero = the object has warnings
inline constexpr PropertyId kIsMbr = 339;
inline constexpr PropertyId kHasFileSystem = 340;
inline constexpr PropertyId kIsMetadata = 342;
inline constexpr PropertyId kIsUnallocated = 343;
inline constexpr PropertyId kEncryption = 344;         // 3 encrypted (BitLocker), 0 none
inline constexpr PropertyId kObjectGuid = 346;         // 8-bit text: GPT unique partition GUID
inline constexpr PropertyId kOsPartitionNumber = 362;  // 65535 = none; needs kNumbering written first
inline constexpr PropertyId kErrorText = 377;          // 16-bit text: the object's errors joined by "; "
inline constexpr PropertyId kStructureErrors = 385;    // StructureError bits
inline constexpr PropertyId kVolumeLayout = 396;

// File-system level (the current object's file system); readable through GetFsProperty and DaGetProperty.
inline constexpr PropertyId kBlockSize = 133;          // in logical sectors of the disk
inline constexpr PropertyId kReservedSectors = 135;    // in logical sectors of the disk
inline constexpr PropertyId kFatCount = 136;
inline constexpr PropertyId kBytesPerInode = 139;
inline constexpr PropertyId kRootEntries = 161;
inline constexpr PropertyId kBlockCount = 232;
inline constexpr PropertyId kBadBlocks = 233;
inline constexpr PropertyId kFreeBlocks = 234;
inline constexpr PropertyId kBlockDevices = 263;
inline constexpr PropertyId kCharDevices = 264;
inline constexpr PropertyId kDirectories = 265;
inline constexpr PropertyId kFatSize = 314;            // in logical sectors of the disk
inline constexpr PropertyId kFatBits = 315;            // 12, 16 or 32
inline constexpr PropertyId kFifos = 316;
inline constexpr PropertyId kFiles = 317;
inline constexpr PropertyId kInodeSize = 329;
inline constexpr PropertyId kInodeCount = 330;
inline constexpr PropertyId kFreeInodes = 331;
inline constexpr PropertyId kJournalBlocks = 345;
inline constexpr PropertyId kHardLinks = 349;
inline constexpr PropertyId kSymLinks = 350;
inline constexpr PropertyId kUsedRootEntries = 378;
inline constexpr PropertyId kSerialNumber = 381;       // pointer to kSerialNumberLength bytes, on-disk order
inline constexpr PropertyId kSockets = 382;
inline constexpr PropertyId kUsefulInfo = 389;         // used blocks (block count - free blocks)
inline constexpr PropertyId kUsefulInfoUnit = 390;     // bytes per block

// File-system option flags (0 or 1), in the order the report lists them.
inline constexpr PropertyId kOptFat12 = 141;
inline constexpr PropertyId kOptExt2SparseSuper = 142;
inline constexpr PropertyId kOptExt2Filetype = 143;
inline constexpr PropertyId kOptExt2LargeFile = 366;
inline constexpr PropertyId kOptExt2ExtAttr = 367;
inline constexpr PropertyId kOptExt2DirPrealloc = 144;
inline constexpr PropertyId kOptExt2DirIndex = 145;
inline constexpr PropertyId kOptExt2MetaBg = 368;
inline constexpr PropertyId kOptExt2ResizeInode = 369;
inline constexpr PropertyId kOptReiserfs35 = 146;
inline constexpr PropertyId kOptXfs4 = 147;
inline constexpr PropertyId kOptExt4HugeFile = 148;
inline constexpr PropertyId kOptExt4GdtCsum = 149;
inline constexpr PropertyId kOptExt4DirNlink = 150;
inline constexpr PropertyId kOptExt4Extents = 151;
inline constexpr PropertyId kOptExt4_64Bit = 370;
inline constexpr PropertyId kOptExt4FlexBg = 152;
inline constexpr PropertyId kOptExt4ExtraIsize = 153;
inline constexpr PropertyId kOptExt4MetadataCsum = 154;
inline constexpr PropertyId kOptApfsPreboot = 155;
inline constexpr PropertyId kOptApfsRecovery = 156;
inline constexpr PropertyId kOptApfsVm = 157;
inline constexpr PropertyId kOptApfsSystem = 158;
inline constexpr PropertyId kOptApfsData = 159;

// Extensions of this implementation (identifiers from 1000 on).
// Selection: DaSetProperty(kNextDisk, 0) moves to the next disk (from no current disk, to the first);
// kDiskHandle then holds its handle, 0 past the last.
inline constexpr PropertyId kNextDisk = 1000;
// Computer: number of disks.
inline constexpr PropertyId kDiskCount = 1001;
// Object: first sector (LBA) of the object, for the sector dumps and the CHS columns.
inline constexpr PropertyId kFirstSector = 1002;
// Object: 8-bit name of the object's partition type, at most 12 characters (the MBR byte's name from
// Disk::PartitionTypeName, or the GPT type GUID's name); absent when unknown.
inline constexpr PropertyId kTypeName = 1003;
// File system: number of bytes at kSerialNumber (4 for FAT and exFAT, 8 for NTFS, 16 for ext and XFS).
inline constexpr PropertyId kSerialNumberLength = 1004;
// Computer: drive letters in use on this system, bit 0 = 'A' (0 where the system has no drive letters).
inline constexpr PropertyId kUsedDriveLetters = 1005;
// DaGetProperty1(kVolumeFreeBytes, letter): free bytes of the mounted volume with that drive letter, from
// the operating system's free-space call; 0 when there is none.
inline constexpr PropertyId kVolumeFreeBytes = 1006;
// Disk: non-zero when no readable device stands behind the disk (its sector reads cannot work: "No I/O disk").
inline constexpr PropertyId kNoIo = 1007;
// Object: 8-bit text (UTF-8) of where the operating system has the file system mounted, if it is.
inline constexpr PropertyId kMountPoint = 1008;

// Extensions the disk report reads (identifiers from 1100 on). Where a parameter is named, the property
// is read with DaGetProperty1(id, parameter) and needs no current object.
// DaGetProperty1(kTypeByteName, MBR type byte): 8-bit name of that type byte, at most 12 characters;
// absent when unknown. Names the entries of the partition-table printout.
inline constexpr PropertyId kTypeByteName = 1100;
// DaGetProperty1(kTypeByteFsType, MBR type byte): the file-system type code (kFsType's values) that the
// type byte stands for: 14 for the FAT12/16 bytes, 15 for the FAT32 bytes, 0 for the others. Chooses the
// boot-sector printout of a partition whose file system was not recognised.
inline constexpr PropertyId kTypeByteFsType = 1101;
// DaGetProperty1(kLabelLength, file-system type code): the longest volume label of that file system, in
// characters (11 for FAT, 32 for NTFS, 16 for ext, 0 where there is no label).
inline constexpr PropertyId kLabelLength = 1102;
// DaGetProperty1(kCountsFreeSpace, file-system type code): non-zero when the free-block count (234) of
// that file system is known, so the report prints its Free column.
inline constexpr PropertyId kCountsFreeSpace = 1103;
// Object: 8-bit name of the file-system driver when it reports one of its own; absent otherwise.
inline constexpr PropertyId kFsDriverName = 1104;
// Disk: 8-bit composite GUID of a disk made of several (a storage space); absent for ordinary disks.
inline constexpr PropertyId kCompositeGuid = 1105;
// Disk: BIOS drive parameters, only where the platform reports them; absent (0) everywhere else.
//   kBiosFixedDiskTable: pointer to the 16 bytes of the fixed-disk parameter table (INT 41h/46h layout);
//   kBiosExtensionsVersion: AH of INT 13h function 41h (0 = no extensions);
//   kBiosExtensionsSupport: CX of function 41h (the support bitmap);
//   kBiosDriveParameters: pointer to the first 26 bytes of function 48h's result buffer.
inline constexpr PropertyId kBiosFixedDiskTable = 1106;
inline constexpr PropertyId kBiosExtensionsVersion = 1107;
inline constexpr PropertyId kBiosExtensionsSupport = 1108;
inline constexpr PropertyId kBiosDriveParameters = 1109;

}  // namespace DaApi::Prop

namespace DaApi {

// Values of kSchemeKind.
namespace SchemeKind {
inline constexpr Value kNone = 0, kRaw = 1, kMbr = 2, kApple = 4, kGpt = 8, kLdm = 16, kMd = 32, kLvm = 64,
                       kApfs = 256, kUnsupported = 32768;
}

// Values of kSchemeState (0 = the scheme was read without trouble).
namespace SchemeState {
inline constexpr Value kOk = 0, kUnknownScheme = 4097, kReadError = 4098, kCorrupted = 4099, kFormatError = 4100;
}

// Values of kInterface.
namespace InterfaceType {
inline constexpr Value kNone = 0, kScsi = 1, kAtapi = 2, kAta = 3, k1394 = 4, kSsa = 5, kFibre = 6, kUsb = 7,
                       kRaid = 8, kIscsi = 9, kSas = 10, kSata = 11, kSd = 12, kMmc = 13, kVirtual = 14,
                       kFileVirtual = 15, kSpaces = 16, kNvme = 17, kNdas = 18;
}

// Values of kOsKind and kFirmwareKind.
namespace OsKind {
inline constexpr Value kNone = 0, kProduct = 1, kWindows = 2, kLinux = 3, kMac = 4;
}
namespace FirmwareKind {
inline constexpr Value kBios = 0, kUefiX86 = 1, kUefiX64 = 2;
}

// Values of kGptMetadataKind.
namespace GptMetadataKind {
inline constexpr Value kNone = 0, kPrimary = 1, kBackup = 2;
}

// Bits of kStructureErrors, in the report's order.
namespace StructureError {
inline constexpr Value kOverlapping = 1, kReadError = 2, kNoTableSignature = 4, kWriteError = 8;
}

// Bits of kWarnings (file-system warnings, known once a check ran), in the report's order.
namespace FsWarning {
inline constexpr Value kFatCorrupted = 1, kDifferentFatCopies = 2, kLongNamesCorrupted = 4, kLostClusters = 8,
                       kSymlinkCorrupted = 16, kUnsupportedCompression = 32, kInvalidFatSize = 64;
}

// Text of a message identifier read from kComputerError, kDiskError or kObjectError; nullptr when the
// identifier has no text (the report prints "<No STRID>").
const char* MessageText(Value id);

}  // namespace DaApi
