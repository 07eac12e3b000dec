// The BCD part over the store made by hivexregedit, found through either layout or not at all. Built where
// a store file can be loaded: Wine's registry does not load hive files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/core/da_api/ksx/fake_boot_disks.h"

namespace {

using KsxTest::FakeFolder;
using KsxTest::KsxReport;

std::string FixtureStore() {
    std::ifstream file(std::filesystem::path(SR_BOOT_FIXTURES_DIR) / "bcd.hive", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST_F(KsxReport, DumpsTheStoreFoundThroughEitherLayoutAndNothingElse) {
    std::string store = FixtureStore();
    if (store.empty()) GTEST_SKIP() << "no bcd.hive fixture (make_boot_fixtures.sh needs root)";
    struct Case {
        const char* folder;
        const char* file;
        std::string bytes;
        const char* opened;  // null: no BCD lines
    } cases[] = {
        {"EFI/Microsoft/Boot", "BCD", store, "BCD opened for GPT boottype"},
        {"Boot", "bcd", store, "BCD opened for MBR boottype"},
        {"Boot", "BCD", "not a hive at all", nullptr},
        {"Boot", "BCD", store.substr(0, 9000), nullptr},
        {"EFI/Microsoft/Boot", "other", store, nullptr},
    };
    for (const Case& c : cases) {
        FakeFolder root;
        root.Folder(c.folder).File(c.file, c.bytes);
        std::string text = Report({{0x80, {{1, false, true, Volume(root)}}}});
        std::size_t at = text.find("BCD opened");
        if (!c.opened) {
            EXPECT_EQ(at, std::string::npos) << c.folder << "/" << c.file;
            continue;
        }
        ASSERT_NE(at, std::string::npos) << c.folder;
        EXPECT_EQ(text.substr(at, text.find("  Objects") - at),
                  std::string(c.opened) + "\r\nBCD dump:\r\nROOT\r\n  Description\r\n    KeyName: BCD00000000\r\n"
                                          "    System: 1\r\n");
        EXPECT_TRUE(text.ends_with("          Element: 4294971392\r\n\r\n")) << c.folder;
        EXPECT_TRUE(std::filesystem::is_empty(scratch_)) << "the store's copy stays behind";
    }
}

}  // namespace
