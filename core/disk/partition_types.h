// Names of partition types (MBR type bytes and GPT type GUIDs) and what each file-system type supports.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "core/disk/guid.h"

namespace Disk {

// File-system type codes as the disk report numbers them (property 137).
enum class FsType : std::uint32_t {
    kNone = 0,
    kReiser4 = 1,
    kReiser = 2,
    kJfs = 3,
    kExt4 = 4,
    kExt3 = 5,
    kExt2 = 6,
    kHfsPlus = 7,
    kHfsx = 8,
    kXfs = 9,
    kNtfs = 10,
    kRefs = 11,
    kHpfs = 13,
    kFat16 = 14,  // FAT12 and FAT16 alike; the FAT bit width tells them apart
    kFat32 = 15,
    kExfat = 16,
    kLinuxSwap = 17,
    kGfs2 = 18,
    kLvmPv = 19,
    kOracle = 20,
    kBitLocker = 22,
};

// Name of an MBR partition type byte, at most 12 characters; empty when the byte is not known.
std::string_view PartitionTypeName(std::uint8_t type);

// FAT12/16 type bytes (0x01, 0x04, 0x06, 0x0E and their hidden forms) and FAT32 type bytes (0x0B, 0x0C and
// their hidden forms).
bool IsFat16TypeByte(std::uint8_t type);
bool IsFat32TypeByte(std::uint8_t type);
// The file-system type a type byte stands for in the boot-sector printouts: kFat16, kFat32, kNtfs (0x07)
// or kNone.
FsType FileSystemOfTypeByte(std::uint8_t type);
// Type bytes that hide a partition from the operating systems that would otherwise mount it.
bool IsHiddenTypeByte(std::uint8_t type);

// A GPT partition type: its name (at most 12 characters) and the MBR type byte that stands for the same
// thing, or 0 where there is none.
struct GptTypeInfo {
    std::string_view name;
    std::uint8_t typeByte = 0;
};
std::optional<GptTypeInfo> LookUpGptType(const Guid& type);

// The longest label a file system of this type holds (the report prints at most 11 characters of it).
std::uint32_t MaxLabelLength(std::uint64_t fsType);
// Whether the file-system type counts its free space (the Free column).
bool CountsFreeSpace(std::uint64_t fsType);

}  // namespace Disk
