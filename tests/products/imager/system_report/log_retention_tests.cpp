// Log retention on real files: the count limit, the size limit, the newest file that always stays, and
// the files of other channels left alone.
#include "products/imager/system_report/log_retention.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;
using SystemReport::ApplyLogRetention;
using SystemReport::LogChannel;

class LogRetentionTest : public ::testing::Test {
protected:
    // Files get increasing modification times in the order they are made; sizes are sparse.
    void MakeLog(const std::string& name, std::uintmax_t size) {
        fs::path path = temp.path() / "service" / name;
        TestSupport::WriteFile(path, "");
        fs::resize_file(path, size);
        fs::last_write_time(path, base + std::chrono::minutes(made++));
    }

    std::vector<std::string> Remaining() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(temp.path() / "service")) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    void Apply() { ApplyLogRetention(temp.path(), {LogChannel{"service", "service_"}}); }

    TestSupport::TempFolder temp;
    fs::file_time_type base = fs::file_time_type::clock::now() - std::chrono::hours(24);
    int made = 0;
};

TEST_F(LogRetentionTest, ThirtyOneFilesOfTheChannelLoseExactlyTheOldest) {
    // Names sort in the opposite order of their times, so only the time stamp can pick the oldest; a file
    // without the channel's prefix neither counts nor goes, though older than all.
    MakeLog("other_0.log", 10);
    for (int i = 0; i < 31; ++i) MakeLog("service_" + std::to_string(100 - i) + ".log", 10);
    Apply();
    auto names = Remaining();
    EXPECT_EQ(names.size(), 31u);
    EXPECT_EQ(std::count(names.begin(), names.end(), "service_100.log"), 0);
    EXPECT_EQ(std::count(names.begin(), names.end(), "other_0.log"), 1);
}

TEST_F(LogRetentionTest, OverTheSizeLimitOlderFilesGoButTheNewestStays) {
    MakeLog("service_1.log", 40u << 20);
    MakeLog("service_2.log", 40u << 20);
    Apply();
    EXPECT_EQ(Remaining(), (std::vector<std::string>{"service_2.log"}));
    MakeLog("service_3.log", 80u << 20);
    Apply();
    EXPECT_EQ(Remaining(), (std::vector<std::string>{"service_3.log"}));
}

TEST_F(LogRetentionTest, MissingRootOrChannelFolderChangesNothing) {
    EXPECT_NO_THROW(ApplyLogRetention(std::nullopt, SystemReport::ProductLogChannels()));
    EXPECT_NO_THROW(ApplyLogRetention(temp.path() / "absent", SystemReport::ProductLogChannels()));
    EXPECT_NO_THROW(ApplyLogRetention(temp.path(), SystemReport::ProductLogChannels()));
}

TEST(LogRetentionTableTest, PrefixesPairWithTheirChannelFolders) {
    const auto& channels = SystemReport::ProductLogChannels();
    ASSERT_EQ(channels.size(), 10u);
    EXPECT_EQ(channels[2].folder + "|" + channels[2].prefix, "console|console-");
    EXPECT_EQ(channels.back().folder + "|" + channels.back().prefix, "cx_demon|cx_demon_");
}

}  // namespace
