// Size strings and the rules of the disk report's name tables that no golden text reaches (the tables' rows,
// FAT12 and "GPTB" are the golden texts' business).
#include <gtest/gtest.h>

#include "core/da_api/disk_name_tables.h"
#include "core/da_api/size_string.h"

namespace DaApi {
namespace {

constexpr std::uint64_t KiB = 1024, MiB = KiB * 1024, GiB = MiB * 1024, TiB = GiB * 1024;

TEST(SizeString, ThreeSignificantDigitsWithBinarySuffixes) {
    struct Case {
        std::uint64_t count, unit;
        const char* text;
    };
    for (const Case& c : {
             Case{0, 1, "0b"}, {999, 1, "999b"}, {1000, 1, "1K"},  // tenths 10: "1.0", trimmed
             {1536, 1, "1.5K"}, {10240, 1, "10K"}, {TiB, 1, "1T"}, {1258291, 1, "1.2M"},
             {931 * GiB + 600 * MiB, 1, "932G"}, {2048, 512, "1M"}, {3, 512, "1.5K"},
             // 999.5K rounds to 1000K, so it is shown in the next unit.
             {1000 * KiB - KiB / 2 - 1, 1, "999K"}, {1000 * KiB - KiB / 2, 1, "1M"}, {1023 * MiB, 1, "1G"},
             // The largest values stay in exabytes without overflow.
             {~std::uint64_t{0}, 1, "16E"}, {std::uint64_t{1000} << 50, 1, "1E"},
         }) {
        EXPECT_EQ(SizeString(c.count, c.unit), c.text) << c.count << " x " << c.unit;
    }
}

TEST(NameTables, RulesBesideTheRows) {
    EXPECT_EQ(FileSystemName(12, 0), "UnknFS");
    EXPECT_EQ(DiskSchemeColumn(0, 8, false, 0), "GPT");
    EXPECT_EQ(DiskSchemeColumn(0, 3, false, 0), "Unknown");
    EXPECT_EQ(DiskSchemeColumn(4099, 2, false, 0), "Corrupted");  // a scheme state wins over the kind
    EXPECT_EQ(SchemeStateName(66, 238), "LDMGPT");
    EXPECT_EQ(SchemeStateName(66, 0x42), "LDMMBR");
    EXPECT_EQ(SchemeStateName((std::uint64_t{1} << 32) | 238, 0), "Unknown");
    EXPECT_EQ(InterfaceName(0), "");
    EXPECT_EQ(InterfaceName(19), "");
    EXPECT_EQ(OperatingSystemName(5), "Unknown");
}

}  // namespace
}  // namespace DaApi
