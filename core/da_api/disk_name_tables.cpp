// The name tables of the disk report.
#include "core/da_api/disk_name_tables.h"

#include <array>
#include <span>

namespace DaApi {
namespace {

struct NamedValue {
    std::uint64_t value;
    const char* name;
};

// Firmware and operating-system tables are searched in order up to the closing all-ones row.
constexpr std::uint64_t kEndOfTable = ~std::uint64_t{0};

constexpr NamedValue kFirmwareKinds[] = {{0, "BIOS"}, {1, "UEFI x86"}, {2, "UEFI x64"}, {kEndOfTable, "Unknown"}};

constexpr NamedValue kOperatingSystems[] = {
    {0, "None"}, {1, "Brendix"}, {2, "Windows"}, {3, "Linux"}, {4, "Mac"}, {kEndOfTable, "Unknown"}};

std::string SearchClosedTable(std::span<const NamedValue> table, std::uint64_t value) {
    for (const NamedValue& row : table) {
        if (row.value == value || row.value == kEndOfTable) return row.name;
    }
    return "Unknown";
}

const char* Lookup(std::span<const NamedValue> table, std::uint64_t value, const char* otherwise) {
    for (const NamedValue& row : table) {
        if (row.value == value) return row.name;
    }
    return otherwise;
}

constexpr NamedValue kFileSystems[] = {
    {0, "NONE"},  {1, "Reisr4"},  {2, "Reiser"}, {3, "JFS"},    {4, "Ext4"},   {5, "Ext3"},   {6, "Ext2"},
    {7, "HFS+"},  {8, "HFSX"},    {9, "XFS"},    {10, "NTFS"},  {11, "REFS"},  {13, "HPFS"},  {15, "FAT32"},
    {16, "ExFAT"}, {17, "LSwap"}, {18, "GFS2"},  {19, "LVM_PV"}, {20, "ORACLE"}, {22, "BITLOC"},
};
constexpr std::uint64_t kFatType = 14;

constexpr NamedValue kSchemes[] = {
    {0, "None"}, {1, "Raw"}, {2, "MBR"}, {4, "Apple"}, {16, "LDM"}, {32, "MD"}, {64, "LVM"}, {256, "APFS"},
    {32768, "Unsup"},
};
constexpr std::uint64_t kGptScheme = 8;

constexpr NamedValue kSchemeStates[] = {
    {0, "Fdisk1"},        {68, "GoBack"},     {84, "DM DDO"},       {85, "EZ-BIOS"},     {142, "LVM"},
    {238, "uGPT"},        {253, "MD"},        {4097, "Unknown PS"}, {4098, "Read Error"}, {4099, "Corrupted"},
    {4100, "Format Error"}, {4101, "AIX"},    {4102, "Apple"},      {4103, "SUN"},       {4104, "Encryption"},
    {4105, "TCG Encryption"},
};
constexpr std::uint64_t kLdmState = 66;
constexpr std::uint64_t kGptProtectiveType = 238;

constexpr std::array<const char*, 19> kInterfaces = {
    "",    "SCSI", "ATAPI", "ATA",   "1394",  "SSA",   "Fibre", "USB",  "RAID", "ISCSI",
    "SAS", "SATA", "SD",    "MMC",   "VIRTL", "FVIRT", "SPACE", "NVME", "NDAS",
};

}  // namespace

std::string FileSystemName(std::uint64_t type, std::uint64_t fatBits) {
    if (type == kFatType) return fatBits == 12 ? "FAT12" : "FAT16";
    return Lookup(kFileSystems, type, "UnknFS");
}

std::string SchemeName(std::uint64_t kind, bool alsoMbr) {
    if (kind == kGptScheme) return alsoMbr ? "GPTB" : "GPT";
    return Lookup(kSchemes, kind, "Unknown");
}

std::string SchemeStateName(std::uint64_t code, std::uint64_t typeByteThroughScheme) {
    if (code == kLdmState) return typeByteThroughScheme == kGptProtectiveType ? "LDMGPT" : "LDMMBR";
    return Lookup(kSchemeStates, code, "Unknown");
}

std::string DiskSchemeColumn(std::uint64_t state, std::uint64_t kind, bool alsoMbr, std::uint64_t typeByteThroughScheme) {
    return state != 0 ? SchemeStateName(state, typeByteThroughScheme) : SchemeName(kind, alsoMbr);
}

std::string InterfaceName(std::uint64_t type) { return type < kInterfaces.size() ? kInterfaces[type] : ""; }

std::string FirmwareName(std::uint64_t kind) { return SearchClosedTable(kFirmwareKinds, kind); }

std::string OperatingSystemName(std::uint64_t kind) { return SearchClosedTable(kOperatingSystems, kind); }

}  // namespace DaApi
