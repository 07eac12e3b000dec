// Size strings and the name tables of the disk report.
#include <gtest/gtest.h>

#include "core/da_api/disk_name_tables.h"
#include "core/da_api/size_string.h"

namespace DaApi {
namespace {

constexpr std::uint64_t KiB = 1024, MiB = KiB * 1024, GiB = MiB * 1024, TiB = GiB * 1024;

TEST(SizeString, ThreeSignificantDigitsWithBinarySuffixes) {
    EXPECT_EQ(SizeString(0), "0b");
    EXPECT_EQ(SizeString(999), "999b");
    EXPECT_EQ(SizeString(1000), "1K");  // tenths 10: "1.0", trimmed
    EXPECT_EQ(SizeString(1536), "1.5K");
    EXPECT_EQ(SizeString(10240), "10K");
    EXPECT_EQ(SizeString(TiB), "1T");
    EXPECT_EQ(SizeString(512), "512b");
    EXPECT_EQ(SizeString(931 * GiB + 600 * MiB), "932G");
    EXPECT_EQ(SizeString(2 * TiB), "2T");
    EXPECT_EQ(SizeString(1258291), "1.2M");
}

TEST(SizeString, MovesUpWhenRoundingWouldNeedFourDigits) {
    // 999.5K rounds to 1000K, so it is shown in the next unit.
    EXPECT_EQ(SizeString(1000 * KiB - KiB / 2 - 1), "999K");
    EXPECT_EQ(SizeString(1000 * KiB - KiB / 2), "1M");
    EXPECT_EQ(SizeString(1023 * MiB), "1G");
}

TEST(SizeString, LargestValuesStayInExabytesWithoutOverflow) {
    EXPECT_EQ(SizeString(~std::uint64_t{0}), "16E");
    EXPECT_EQ(SizeString(std::uint64_t{1} << 60), "1E");
    EXPECT_EQ(SizeString(std::uint64_t{1000} << 50), "1E");
}

TEST(SizeString, CountTimesUnit) {
    EXPECT_EQ(SizeString(2048, 512), "1M");
    EXPECT_EQ(SizeString(3, 512), "1.5K");
}

TEST(NameTables, FileSystemsWithFatWidthAndUnknownCodes) {
    EXPECT_EQ(FileSystemName(14, 12), "FAT12");
    EXPECT_EQ(FileSystemName(14, 16), "FAT16");
    EXPECT_EQ(FileSystemName(14, 0), "FAT16");
    EXPECT_EQ(FileSystemName(15, 32), "FAT32");
    EXPECT_EQ(FileSystemName(10, 0), "NTFS");
    EXPECT_EQ(FileSystemName(12, 0), "UnknFS");
    EXPECT_EQ(FileSystemName(21, 0), "UnknFS");
    EXPECT_EQ(FileSystemName(22, 0), "BITLOC");
}

TEST(NameTables, SchemesAndStates) {
    EXPECT_EQ(DiskSchemeColumn(0, 8, false, 0), "GPT");
    EXPECT_EQ(DiskSchemeColumn(0, 8, true, 0), "GPTB");
    EXPECT_EQ(DiskSchemeColumn(0, 2, false, 0), "MBR");
    EXPECT_EQ(DiskSchemeColumn(0, 3, false, 0), "Unknown");
    EXPECT_EQ(DiskSchemeColumn(4099, 2, false, 0), "Corrupted");
    EXPECT_EQ(SchemeStateName(66, 238), "LDMGPT");
    EXPECT_EQ(SchemeStateName(66, 0x42), "LDMMBR");
    EXPECT_EQ(SchemeStateName(4105, 0), "TCG Encryption");
    EXPECT_EQ(SchemeStateName((std::uint64_t{1} << 32) | 238, 0), "Unknown");
    EXPECT_EQ(SchemeStateName(1, 0), "Unknown");
}

TEST(NameTables, InterfacesFirmwareAndSystems) {
    EXPECT_EQ(InterfaceName(0), "");
    EXPECT_EQ(InterfaceName(11), "SATA");
    EXPECT_EQ(InterfaceName(18), "NDAS");
    EXPECT_EQ(InterfaceName(19), "");
    EXPECT_EQ(FirmwareName(2), "UEFI x64");
    EXPECT_EQ(FirmwareName(3), "Unknown");
    EXPECT_EQ(FirmwareName(~std::uint64_t{0}), "Unknown");
    EXPECT_EQ(OperatingSystemName(3), "Linux");
    EXPECT_EQ(OperatingSystemName(5), "Unknown");
}

}  // namespace
}  // namespace DaApi
