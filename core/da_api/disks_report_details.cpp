// The per-object blocks of the disk report.
#include "core/da_api/disks_report_details.h"

#include <array>

#include "core/da_api/boot_sector_dump.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/disk_name_tables.h"
#include "core/da_api/disks_report_access.h"
#include "core/da_api/disks_report_rows.h"
#include "core/da_api/disks_report_sectors.h"
#include "core/da_api/partition_table_dump.h"
#include "core/da_api/report_printf.h"

namespace DaApi::DisksReport {
namespace {

using ull = unsigned long long;

constexpr std::size_t kMaxSerialBytes = 64;
constexpr Value kRootEntryBytes = 32;

struct Named {
    Value bit;
    const char* text;
};

constexpr std::array<Named, 4> kStructureErrorLines = {{
    {StructureError::kOverlapping, "    Overlapping"},
    {StructureError::kReadError, "    Read error"},
    {StructureError::kNoTableSignature, "    No table signature"},
    {StructureError::kWriteError, "    Write error"},
}};

constexpr std::array<Named, 7> kWarningLines = {{
    {FsWarning::kFatCorrupted, "    FAT corrupted"},
    {FsWarning::kDifferentFatCopies, "    Different FAT copies"},
    {FsWarning::kLongNamesCorrupted, "    Long file names corrupted"},
    {FsWarning::kLostClusters, "    Lost blocks (clusters)"},
    {FsWarning::kSymlinkCorrupted, "    Symbolic link corrupted"},
    {FsWarning::kUnsupportedCompression, "    Unsupported compression method"},
    {FsWarning::kInvalidFatSize, "    Invalid FAT size"},
}};

struct Option {
    PropertyId flag;
    const char* name;
};

constexpr std::array<Option, 24> kOptions = {{
    {Prop::kOptFat12, "FAT12"},
    {Prop::kOptExt2SparseSuper, "EXT2_SPARSE_SUPER"},
    {Prop::kOptExt2Filetype, "EXT2_FILETYPE"},
    {Prop::kOptExt2LargeFile, "EXT2_LARGE_FILE"},
    {Prop::kOptExt2ExtAttr, "EXT2_EXT_ATTR"},
    {Prop::kOptExt2DirPrealloc, "EXT2_DIR_PREALLOC"},
    {Prop::kOptExt2DirIndex, "EXT2_DIR_INDEX"},
    {Prop::kOptExt2MetaBg, "EXT2_META_BG"},
    {Prop::kOptExt2ResizeInode, "EXT2_RESIZE_INODE"},
    {Prop::kOptReiserfs35, "REISERFS_3_5"},
    {Prop::kOptXfs4, "XFS_4"},
    {Prop::kOptExt4HugeFile, "EXT4_HUGE_FILE"},
    {Prop::kOptExt4GdtCsum, "EXT4_GDT_CSUM"},
    {Prop::kOptExt4DirNlink, "EXT4_DIR_NLINK"},
    {Prop::kOptExt4Extents, "EXT4_EXTENTS"},
    {Prop::kOptExt4_64Bit, "EXT4_64BIT"},
    {Prop::kOptExt4FlexBg, "EXT4_FLEX_BG"},
    {Prop::kOptExt4ExtraIsize, "EXT4_EXTRA_ISIZE"},
    {Prop::kOptExt4MetadataCsum, "EXT4_METADATA_CSUM"},
    {Prop::kOptApfsPreboot, "APFS_VOLUME_ROLE_PREBOOT"},
    {Prop::kOptApfsRecovery, "APFS_VOLUME_ROLE_RECOVERY"},
    {Prop::kOptApfsVm, "APFS_VOLUME_ROLE_VM"},
    {Prop::kOptApfsSystem, "APFS_VOLUME_ROLE_SYSTEM"},
    {Prop::kOptApfsData, "APFS_VOLUME_ROLE_DATA"},
}};

template <std::size_t N>
void WriteBitLines(std::ostream& out, Value bits, const std::array<Named, N>& lines) {
    for (const Named& line : lines) {
        if (bits & line.bit) WriteLine(out, line.text);
    }
}

std::string ErrorText(Value id) {
    const char* text = MessageText(id);
    return text ? text : "<No STRID>";
}

// " of type 07 (HPFS/NTFS) and size 100M", " of GPT type <GUID> and size 100M" or " of size 1M".
std::string TitleDetails() {
    std::string type;
    if (Get(Prop::kIsUnallocated) == 0 && Get(Prop::kIsMbr) == 0) {
        Value typeByte = Get(Prop::kTypeByte);
        if (Get(Prop::kSchemeKind) == SchemeKind::kGpt) {
            if (std::string guid = GetText8(Prop::kGptTypeGuid); !guid.empty()) type = " GPT type " + guid;
        } else if (typeByte != 0 || Get(Prop::kIsMetadata) == 0) {
            type = Printf(" type %02llX", static_cast<ull>(typeByte));
            if (std::string name = GetText8(Prop::kTypeName); !name.empty()) type += " (" + name + ")";
        }
    }
    std::string size = " size " + Size(Get(Prop::kSectorCount), 0);
    return " of" + (type.empty() ? size : type + " and" + size);
}

std::string SectorLine(const char* label, Value sector, const std::optional<DiskGeometry>& geometry) {
    return Printf("%s%10llu (0x%llX)", label, static_cast<ull>(sector), static_cast<ull>(sector)) +
           ChsSuffix(sector, geometry);
}

// A count line: the value and the size string of value x unit (unit 0: the sector size).
void WriteCount(std::ostream& out, const char* label, Value value, Value unit) {
    WriteLine(out, Printf("%s%llu (%s)", label, static_cast<ull>(value), Size(value, unit).c_str()));
}

void WritePlain(std::ostream& out, const char* label, Value value) {
    WriteLine(out, Printf("%s%llu", label, static_cast<ull>(value)));
}

void WriteDumps(std::ostream& out) {
    bool table = Get(Prop::kIsMbr) != 0 || Get(Prop::kExtendedTable) != 0;
    Value typeByte = Get(Prop::kTypeByte);
    BootSectorLayout layout =
        ChooseBootSectorLayout(Get(Prop::kFsType), typeByte, Get1(Prop::kTypeByteFsType, typeByte));
    if (!table && layout == BootSectorLayout::kNone) return;
    std::optional<std::vector<std::uint8_t>> sector = ReadFirstSector();
    if (!sector) return;
    std::string text;
    if (table) {
        AppendPartitionTable(text, *sector, [](std::uint8_t type) { return GetText8(Prop::kTypeByteName, type); });
    }
    AppendBootSector(text, layout, *sector);
    out << text;
}

}  // namespace

std::string ObjectTitle(const Place& place) {
    if (place.volumeGroup) {
        std::string guid = GetText8(Prop::kObjectGuid);
        return Printf("%s %s %s", SchemeStateName(Get(Prop::kContainerKind), Get(Prop::kSchemeTypeByte)).c_str(),
                      place.volume ? "volume" : "partition", guid.empty() ? "<No GUID>" : guid.c_str());
    }
    const char* kind = Get(Prop::kIsUnallocated) != 0 ? "Unallocated"
                       : Get(Prop::kIsMbr) != 0       ? "MBR"
                       : Get(Prop::kIsMetadata) != 0  ? "Meta"
                                                      : "Partition";
    Value number = Get(Prop::kPartitionNumber);
    return Printf("%s %llu-", kind, static_cast<ull>(Get(Prop::kDiskNumber))) +
           (number != 0 ? Printf("%llu", static_cast<ull>(number)) : "*") + ":";
}

void WriteSectorPassObject(std::ostream& out, const Place& place) {
    std::string text = "\r\n" + ObjectTitle(place);
    AppendObjectDump(text);
    out << text;
}

void WritePartitionDetail(std::ostream& out, const Place& place) {
    WriteLine(out, ObjectTitle(place) + TitleDetails());
    Value first = Get(Prop::kFirstSector);
    Value count = Get(Prop::kSectorCount);
    Value last = count != 0 ? first + count - 1 : first;
    std::optional<DiskGeometry> geometry = CurrentGeometry();
    WriteLine(out, SectorLine("  First sector:  ", first, geometry));
    WriteLine(out, SectorLine("  Last sector:   ", last, geometry));
    WriteLine(out, SectorLine("  Total sectors: ", count, std::nullopt));
    if (Value errors = Get(Prop::kStructureErrors); errors != 0) {
        WriteLine(out, "  Partition structure errors:");
        WriteBitLines(out, errors, kStructureErrorLines);
    }
    WriteDumps(out);
}

void WriteFileSystemDetail(std::ostream& out, const Place& place) {
    Value fsType = Get(Prop::kFsType);
    // The whole title line of the partition detail block, " of type ... and size ..." included, then
    // " file system": the block then says which partition it describes without looking back.
    WriteLine(out, ObjectTitle(place) + TitleDetails() + " file system");
    std::string driver = GetText8(Prop::kFsDriverName);
    WriteLine(out, driver.empty() ? "  FS:                " + FileSystemName(fsType, GetFs(Prop::kFatBits))
                                  : "  File System " + driver);
    if (Value warnings = Get(Prop::kWarnings); warnings != 0) {
        WriteLine(out, "  File system warnings:");
        WriteBitLines(out, warnings, kWarningLines);
    }

    Value sectorSize = SectorSize();
    Value blockBytes = GetFs(Prop::kBlockSize) * sectorSize;
    Value inodeSize = GetFs(Prop::kInodeSize);
    WriteCount(out, "  FSSize:            ", Get(Prop::kFsSectors), 0);
    WriteCount(out, "  BlockSize:         ", GetFs(Prop::kBlockSize), 0);
    WriteCount(out, "  BlockCount:        ", GetFs(Prop::kBlockCount), blockBytes);
    WriteCount(out, "  FreeBlockCount:    ", GetFs(Prop::kFreeBlocks), blockBytes);
    WriteCount(out, "  ReservedSectors:   ", GetFs(Prop::kReservedSectors), 0);
    WriteCount(out, "  FATSize:           ", GetFs(Prop::kFatSize), 0);
    WriteCount(out, "  FATCount:          ", GetFs(Prop::kFatCount), GetFs(Prop::kFatSize) * sectorSize);
    WriteCount(out, "  RootEntries:       ", GetFs(Prop::kRootEntries), kRootEntryBytes);
    WriteCount(out, "  UsedRootEntries:   ", GetFs(Prop::kUsedRootEntries), kRootEntryBytes);
    WriteCount(out, "  InodeSize:         ", inodeSize, 1);
    WriteCount(out, "  InodeCount:        ", GetFs(Prop::kInodeCount), inodeSize);
    WriteCount(out, "  BytesPerInode:     ", GetFs(Prop::kBytesPerInode), 1);

    WriteLine(out, "  VolumeLabel:       " + LabelText(GetText16(Prop::kVolumeLabel), Get1(Prop::kLabelLength, fsType)));
    std::string serial = "  SerialNumber:     ";
    std::size_t serialLength = std::min<std::size_t>(GetFs(Prop::kSerialNumberLength), kMaxSerialBytes);
    for (std::uint8_t byte : GetFsBytes(Prop::kSerialNumber, serialLength)) AppendPrintf(serial, " %02X", byte);
    WriteLine(out, serial);

    WritePlain(out, "  CheckPerformed:    ", Get(Prop::kCheckCount));
    WriteCount(out, "  UsefulInformation: ", GetFs(Prop::kUsefulInfo), GetFs(Prop::kUsefulInfoUnit));
    WriteCount(out, "  BadBlockCount:     ", GetFs(Prop::kBadBlocks), blockBytes);
    WriteCount(out, "  FreeInodeCount:    ", GetFs(Prop::kFreeInodes), inodeSize);
    WritePlain(out, "  FilesCount:        ", GetFs(Prop::kFiles));
    WritePlain(out, "  DirectoriesCount:  ", GetFs(Prop::kDirectories));
    WritePlain(out, "  HardLinkCount:     ", GetFs(Prop::kHardLinks));
    WritePlain(out, "  SymLinkCount:      ", GetFs(Prop::kSymLinks));
    WritePlain(out, "  BlockDeviceCount:  ", GetFs(Prop::kBlockDevices));
    WritePlain(out, "  CharDeviceCount:   ", GetFs(Prop::kCharDevices));
    WritePlain(out, "  SocketCount:       ", GetFs(Prop::kSockets));
    WritePlain(out, "  FifoCount:         ", GetFs(Prop::kFifos));
    WriteCount(out, "  JournalSize:       ", GetFs(Prop::kJournalBlocks), blockBytes);

    std::string options = "  Options:          ";
    for (const Option& option : kOptions) {
        if (GetFs(option.flag) != 0) options += std::string(" ") + option.name;
    }
    WriteLine(out, options);
}

void WriteComputerError(std::ostream& out) {
    if (Value id = Get(Prop::kComputerError); id != 0) WriteLine(out, "Computer: " + ErrorText(id));
}

void WriteDiskError(std::ostream& out) {
    Value id = Get(Prop::kDiskError);
    if (id == 0) return;
    if (Get(Prop::kIsVolumeGroup) != 0) {
        out << Printf("  Volume group \"%s\": %s\n", GetText8(Prop::kGroupName).c_str(), ErrorText(id).c_str());
    } else {
        out << Printf("  Disk %llu: %s\n", static_cast<ull>(Get(Prop::kDiskNumber)), ErrorText(id).c_str());
    }
}

void WriteObjectError(std::ostream& out, const Place& place) {
    Value id = Get(Prop::kObjectError);
    if (id == 0) return;
    if (place.volume) {
        out << Printf("    Volume %llu: %s\n", static_cast<ull>(place.volumeNumber), ErrorText(id).c_str());
    } else {
        out << Printf("    Partition %llu: %s\n", static_cast<ull>(Get(Prop::kPartitionNumber)), ErrorText(id).c_str());
    }
}

}  // namespace DaApi::DisksReport
