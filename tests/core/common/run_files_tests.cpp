// Run files: owners read back from names, and only what an ended run left is removed.
#include "core/common/run_files.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;
using Common::RunOwner;

TEST(RunFilesTest, OwnerIsReadBackFromTheName) {
    const struct {
        std::string name;
        std::optional<RunOwner> owner;
    } cases[] = {
        {"SystemReport-12-345-0", RunOwner{12, 345}},
        {"SystemReport-12-345-aBc123", RunOwner{12, 345}},
        {"SystemReport-12-345", std::nullopt},   // nothing after the start time
        {"SystemReport-12--0", std::nullopt},
        {"SystemReport-x-345-0", std::nullopt},
        {"SystemReport-99999999999999999999-1-0", std::nullopt},  // out of range
        {"Other-12-345-0", std::nullopt},
        {"SystemReport-", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Common::OwnerOfRunFile(c.name, Common::kScratchPrefix), c.owner);
    }
    std::string own = Common::NewRunFileName(Common::kPartialArchivePrefix, Common::kPartialArchiveSuffix);
    EXPECT_LT(own.size(), 64u);
    EXPECT_EQ(Common::OwnerOfRunFile(own, Common::kPartialArchivePrefix), Common::CurrentRunOwner());
    EXPECT_NE(own, Common::NewRunFileName(Common::kPartialArchivePrefix, Common::kPartialArchiveSuffix));
}

TEST(RunFilesTest, OnlyFilesOfEndedRunsAreRemoved) {
    TestSupport::TempFolder temp;
    RunOwner self = Common::CurrentRunOwner();
    // A process id no system hands out, and this process with another start time (its id reused).
    std::string gone = "4294967290-1-", reused = std::to_string(self.pid) + "-" + std::to_string(self.started + 1) + "-";
    std::string alive = std::to_string(self.pid) + "-" + std::to_string(self.started) + "-";
    const struct {
        std::string name;
        bool folder;
        bool removed;
    } cases[] = {
        {".SystemReport-" + gone + "0.partial", false, true},
        {".SystemReport-" + reused + "1.partial", false, true},
        {"SystemReport-" + gone + "Ab12Cd", true, true},
        {".SystemReport-" + alive + "2.partial", false, false},  // a concurrent run's
        {"SystemReport-" + alive + "Xy34Zw", true, false},
        {".SystemReport-" + gone + "3.zip", false, false},      // not a partial archive
        {"report.zip", false, false},
    };
    for (const auto& c : cases) {
        if (c.folder) TestSupport::WriteFile(temp.path() / c.name / "inner" / "tool.txt", "x");
        else TestSupport::WriteFile(temp.path() / c.name, "x");
    }
    EXPECT_EQ(Common::RemoveStaleRunFiles(temp.path(), Common::kPartialArchivePrefix, Common::kPartialArchiveSuffix), 2u);
    EXPECT_EQ(Common::RemoveStaleRunFiles(temp.path(), Common::kScratchPrefix), 1u);
    for (const auto& c : cases) EXPECT_EQ(fs::exists(temp.path() / c.name), !c.removed) << c.name;
}

TEST(RunFilesTest, PrivateFolderIsNamedAfterItsOwner) {
    TestSupport::TempFolder temp;
    fs::path made;
    ASSERT_FALSE(Common::MakePrivateRunFolder(temp.path(), Common::kScratchPrefix, made));
    EXPECT_TRUE(fs::is_directory(made));
    EXPECT_EQ(made.parent_path(), temp.path());
    EXPECT_EQ(Common::OwnerOfRunFile(made.filename().string(), Common::kScratchPrefix), Common::CurrentRunOwner());
    EXPECT_EQ(Common::RemoveStaleRunFiles(temp.path(), Common::kScratchPrefix), 0u);
}

}  // namespace
