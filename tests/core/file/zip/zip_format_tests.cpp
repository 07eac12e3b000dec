// Zip records: the entry-name rules and the limits of DOS time.
#include "core/file/zip/zip_format.h"

#include <gtest/gtest.h>

namespace {

using namespace Zip::Format;

TEST(ZipFormatTest, NamesAreNormalizedOrRefused) {
    EXPECT_EQ(NormalizeName("logs\\setup\\a.log", false), "logs/setup/a.log");
    EXPECT_EQ(NormalizeName("//root.txt", false), "root.txt");
    EXPECT_EQ(NormalizeName("logs", true), "logs/");
    EXPECT_EQ(NormalizeName("\\logs\\\\", true), "logs/");
    EXPECT_EQ(NormalizeName("a..b/..c", false), "a..b/..c");
    for (const char* bad : {"", "/", "\\\\", "..", "a/../b", "a\\..\\b", "a/..", "dir/"}) {
        EXPECT_EQ(NormalizeName(bad, false), std::nullopt) << bad;
    }
    EXPECT_EQ(NormalizeName("../up", true), std::nullopt);
    EXPECT_EQ(NormalizeName(std::string(0x10000, 'n'), false), std::nullopt);
}

// The clamp to 1980 is the reader tests' (a folder dated 1971).
TEST(ZipFormatTest, DosTimeRoundsSecondsDownAndClampsToItsRange) {
    std::tm leapDay{};
    leapDay.tm_year = 2024 - 1900;
    leapDay.tm_mon = 1;
    leapDay.tm_mday = 29;
    leapDay.tm_hour = 13;
    leapDay.tm_min = 45;
    leapDay.tm_sec = 59;
    EXPECT_EQ(ToDosDateTime(leapDay).date, 44 << 9 | 2 << 5 | 29);
    EXPECT_EQ(ToDosDateTime(leapDay).time, 13 << 11 | 45 << 5 | 29);

    std::tm late = leapDay;
    late.tm_year = 2200 - 1900;
    EXPECT_EQ(ToDosDateTime(late).date, 127 << 9 | 12 << 5 | 31);

    if constexpr (sizeof(std::time_t) > 4) {
        EXPECT_EQ(ToUnixTime32(static_cast<std::time_t>(1) << 40), INT32_MAX);
        EXPECT_EQ(ToUnixTime32(-(static_cast<std::time_t>(1) << 40)), INT32_MIN);
    }
}

}  // namespace
