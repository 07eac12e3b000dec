// Partition-type name tables and file-system capabilities.
#include "core/disk/partition_types.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Disk {
namespace {

struct TypeByteName {
    std::uint8_t type;
    std::string_view name;
};

// Names of at most 12 characters, so that they fit the Type column whole.
constexpr TypeByteName kTypeByteNames[] = {
    {0x00, "Empty"},        {0x01, "FAT12"},        {0x02, "XENIX root"},   {0x03, "XENIX usr"},
    {0x04, "FAT16 <32M"},   {0x05, "Extended"},     {0x06, "FAT16"},        {0x07, "NTFS/exFAT"},
    {0x08, "AIX"},          {0x09, "AIX boot"},     {0x0A, "OS/2 BootMgr"}, {0x0B, "FAT32"},
    {0x0C, "FAT32 LBA"},    {0x0E, "FAT16 LBA"},    {0x0F, "Extended LBA"}, {0x11, "Hidden FAT12"},
    {0x12, "Diagnostics"},  {0x14, "Hidden FAT16"}, {0x16, "Hidden FAT16"}, {0x17, "Hidden NTFS"},
    {0x1B, "Hidden FAT32"}, {0x1C, "Hidden FAT32"}, {0x1E, "Hidden FAT16"}, {0x27, "Recovery"},
    {0x39, "Plan 9"},       {0x3C, "PQ recovery"},  {0x42, "LDM"},          {0x4D, "QNX4.x"},
    {0x63, "Unix System"},  {0x80, "Minix old"},    {0x81, "Minix"},        {0x82, "Linux swap"},
    {0x83, "Linux"},        {0x84, "Hibernation"},  {0x85, "Linux ext."},   {0x86, "NTFS vol.set"},
    {0x87, "NTFS vol.set"}, {0x88, "Linux text"},   {0x8E, "Linux LVM"},    {0x93, "Amoeba"},
    {0x9F, "BSD/OS"},       {0xA0, "Hibernation"},  {0xA5, "FreeBSD"},      {0xA6, "OpenBSD"},
    {0xA8, "Darwin UFS"},   {0xA9, "NetBSD"},       {0xAB, "Darwin boot"},  {0xAF, "HFS/HFS+"},
    {0xB7, "BSDI fs"},      {0xB8, "BSDI swap"},    {0xBC, "Backup"},       {0xBE, "Solaris boot"},
    {0xBF, "Solaris"},      {0xDE, "Utility"},      {0xEB, "BeOS"},         {0xEE, "GPT"},
    {0xEF, "EFI system"},   {0xFB, "VMFS"},         {0xFC, "VMFS swap"},    {0xFD, "Linux RAID"},
    {0xFE, "LANstep"},      {0xFF, "BBT"},
};

struct GptTypeRow {
    std::string_view guid;
    GptTypeInfo info;
};

constexpr GptTypeRow kGptTypes[] = {
    {"C12A7328-F81F-11D2-BA4B-00A0C93EC93B", {"EFI system", 0xEF}},
    {"024DEE41-33E7-11D3-9D69-0008C781F39F", {"MBR scheme", 0}},
    {"21686148-6449-6E6F-744E-656564454649", {"BIOS boot", 0}},
    {"E3C9E316-0B5C-4DB8-817D-F92DF00215AE", {"MS reserved", 0}},
    {"EBD0A0A2-B9E5-4433-87C0-68B6B72699C7", {"Basic data", 0x07}},
    {"DE94BBA4-06D1-4D40-A16A-BFD50179D6AC", {"MS recovery", 0x27}},
    {"5808C8AA-7E8F-42E0-85D2-E1E90434CFB3", {"LDM metadata", 0x42}},
    {"AF9B60A0-1431-4F62-BC68-3311714A69AD", {"LDM data", 0x42}},
    {"E75CAF8F-F680-4CEE-AFA3-B001E56EFC2D", {"Storage sp.", 0}},
    {"0FC63DAF-8483-4772-8E79-3D69D8477DE4", {"Linux data", 0x83}},
    {"4F68BCE3-E8CD-4DB1-96E7-FBCAF984B709", {"Linux root", 0x83}},
    {"44479540-F297-41B2-9AF7-D131D5F0458A", {"Linux root", 0x83}},
    {"933AC7E1-2EB4-4F13-B844-0E14E2AEF915", {"Linux home", 0x83}},
    {"BC13C2FF-59E6-4262-A352-B275FD6F7172", {"Linux boot", 0x83}},
    {"0657FD6D-A4AB-43C4-84E5-0933C84B4F4F", {"Linux swap", 0x82}},
    {"E6D6D379-F507-44C2-A23C-238F2A3DF928", {"Linux LVM", 0x8E}},
    {"A19D880F-05FC-4D3B-A006-743F0F84911E", {"Linux RAID", 0xFD}},
    {"CA7D7CCB-63ED-4C53-861C-1742536059CC", {"Linux LUKS", 0}},
    {"48465300-0000-11AA-AA11-00306543ECAC", {"HFS+", 0xAF}},
    {"7C3457EF-0000-11AA-AA11-00306543ECAC", {"APFS", 0xAF}},
    {"426F6F74-0000-11AA-AA11-00306543ECAC", {"Apple boot", 0xAB}},
    {"516E7CB4-6ECF-11D6-8FF8-00022D09712B", {"FreeBSD data", 0xA5}},
    {"516E7CB5-6ECF-11D6-8FF8-00022D09712B", {"FreeBSD swap", 0xA5}},
    {"516E7CB6-6ECF-11D6-8FF8-00022D09712B", {"FreeBSD UFS", 0xA5}},
    {"6A85CF4D-1DD2-11B2-99A6-080020736631", {"Solaris root", 0xBF}},
    {"AA31E02A-400F-11DB-9590-000C2911D1B8", {"VMFS", 0xFB}},
};

}  // namespace

std::string_view PartitionTypeName(std::uint8_t type) {
    const auto* row = std::find_if(std::begin(kTypeByteNames), std::end(kTypeByteNames),
                                   [type](const TypeByteName& r) { return r.type == type; });
    return row == std::end(kTypeByteNames) ? std::string_view() : row->name;
}

bool IsFat16TypeByte(std::uint8_t type) {
    switch (type) {
    case 0x01: case 0x04: case 0x06: case 0x0E: case 0x11: case 0x14: case 0x16: case 0x1E: return true;
    default: return false;
    }
}

bool IsFat32TypeByte(std::uint8_t type) {
    return type == 0x0B || type == 0x0C || type == 0x1B || type == 0x1C;
}

FsType FileSystemOfTypeByte(std::uint8_t type) {
    if (IsFat16TypeByte(type)) return FsType::kFat16;
    if (IsFat32TypeByte(type)) return FsType::kFat32;
    if (type == 0x07) return FsType::kNtfs;
    return FsType::kNone;
}

bool IsHiddenTypeByte(std::uint8_t type) {
    switch (type) {
    case 0x11: case 0x14: case 0x16: case 0x17: case 0x1B: case 0x1C: case 0x1E: case 0x27: return true;
    default: return false;
    }
}

std::optional<GptTypeInfo> LookUpGptType(const Guid& type) {
    const std::string text = type.ToString();
    for (const auto& row : kGptTypes)
        if (row.guid == text) return row.info;
    return std::nullopt;
}

std::uint32_t MaxLabelLength(std::uint64_t fsType) {
    switch (static_cast<FsType>(fsType)) {
    case FsType::kFat16: case FsType::kFat32: case FsType::kExfat: return 11;
    case FsType::kNtfs: case FsType::kRefs: return 32;
    case FsType::kExt2: case FsType::kExt3: case FsType::kExt4: case FsType::kReiser: case FsType::kReiser4:
    case FsType::kJfs: case FsType::kLinuxSwap: return 16;
    case FsType::kXfs: return 12;
    case FsType::kHfsPlus: case FsType::kHfsx: return 255;
    case FsType::kGfs2: return 64;
    default: return 0;
    }
}

bool CountsFreeSpace(std::uint64_t fsType) {
    switch (static_cast<FsType>(fsType)) {
    case FsType::kFat16: case FsType::kFat32: case FsType::kExfat: case FsType::kNtfs: case FsType::kExt2:
    case FsType::kExt3: case FsType::kExt4: case FsType::kXfs: case FsType::kHfsPlus: case FsType::kHfsx:
    case FsType::kReiser: return true;
    default: return false;
    }
}

}  // namespace Disk
