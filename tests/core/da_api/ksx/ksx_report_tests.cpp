// The boot configuration report over fake disks and volumes: the walk and its numbering, the content rules,
// and the BCD part over a store made by hivexregedit.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/da_api/ksx_content.h"
#include "core/da_api/ksx_report.h"
#include "tests/core/da_api/ksx/fake_boot_disks.h"

namespace {

using KsxTest::FakeFolder;

constexpr const char* kHeader = "\r\n------ Selvora report ------\r\n\r\n";

class KsxReport : public ::testing::Test {
protected:
    void SetUp() override {
        scratch_ = std::filesystem::temp_directory_path() /
                   ("ksx-test-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        std::filesystem::remove_all(scratch_);
        std::filesystem::create_directories(scratch_);
    }
    void TearDown() override { std::filesystem::remove_all(scratch_); }

    std::string Report(std::vector<KsxTest::FakeBootDisk> disks) {
        KsxTest::InstallDisks(std::move(disks));
        std::ostringstream out;
        EXPECT_TRUE(DaApi::WriteKsxReport(&out, scratch_).Succeeded());
        return out.str();
    }

    static std::shared_ptr<const FakeFolder> Volume(FakeFolder folder) {
        return std::make_shared<const FakeFolder>(std::move(folder));
    }

    std::filesystem::path scratch_;
};

TEST_F(KsxReport, WalksMountablePartitionsNumberedByBiosNumberOrPlace) {
    FakeFolder one;
    one.File("bootmgr", "abc");
    std::string text = Report({
        {0x80, {{1, false, true, Volume(one)}, {2, true, true, Volume(one)}, {3, false, false, Volume(one)}}},
        {0, {{1, false, true, nullptr}}},
        {0x81, {{5, false, true, Volume({})}}},
        {0, {{2, false, true, Volume({})}}},
    });
    EXPECT_EQ(text, std::string(kHeader) +
                        "--- Partition 1-1 content ---\r\n\r\n"
                        "--- Root dir content: ---\r\n"
                        "bootmgr 3\r\n"
                        "--- Partition 2-1 content ---\r\n\r\n"
                        "Mount error\r\n\r\n\r\n"
                        "--- Partition 2-5 content ---\r\n\r\n"
                        "--- Root dir content: ---\r\n"
                        "--- Partition 4-2 content ---\r\n\r\n"
                        "--- Root dir content: ---\r\n");
}

TEST(KsxContent, WritesBootFilesInListOrderAsTextOrBytesAndTheBootManagersFolder) {
    FakeFolder root;
    root.Folder("ZORBELT").File("loader.cfg", "set=1\r\n").File("blank.cfg", "");
    root.Folder("Boot");
    std::string big(DaApi::Ksx::kMaxFileBytes + 10, 'a');
    root.File("config.sys", "FILES=30\r\n")
        .File("BOOT.INI", "")
        .File("zorbelt.ksx", std::string("\x01\x00\xFFK", 4))
        .File("autoexec.bat", big)
        .File("notes.txt", "not a boot file");
    std::string text;
    DaApi::Ksx::WriteVolumeContent(*KsxTest::OpenFolder(std::make_shared<const FakeFolder>(root)), text);
    EXPECT_EQ(text, "--- Root dir content: ---\r\n"
                    "ZORBELT <DIR>\r\n"
                    "Boot <DIR>\r\n"
                    "config.sys 10\r\n"
                    "BOOT.INI 0\r\n"
                    "zorbelt.ksx 4\r\n"
                    "autoexec.bat 262154\r\n"
                    "notes.txt 15\r\n"
                    "--- autoexec.bat file content: ---\r\n" +
                        big.substr(0, DaApi::Ksx::kMaxFileBytes) +
                        "\r\n--- autoexec.bat file cut: the first 262144 of 262154 bytes are shown ---"
                        "\r\n--- autoexec.bat file end ---\r\n\r\n"
                        "boot.ini file is empty\r\n\r\n"
                        "--- zorbelt.ksx file content: ---\r\n"
                        "01 00 FF 4B \r\n--- zorbelt.ksx file end ---\r\n\r\n"
                        "--- config.sys file content: ---\r\n"
                        "FILES=30\r\n\r\n--- config.sys file end ---\r\n\r\n"
                        "--- ZORBELT dir content: ---\r\n"
                        "loader.cfg 7\r\n"
                        "blank.cfg 0\r\n"
                        "--- loader.cfg file content: ---\r\n"
                        "set=1\r\n\r\n--- loader.cfg file end ---\r\n\r\n"
                        "blank.cfg file is empty\r\n\r\n");
}

TEST(KsxContent, PlainTextRule) {
    EXPECT_TRUE(DaApi::Ksx::IsPlainText("[boot loader]\r\n\ttimeout=30\n\xE9t\xE9"));
    EXPECT_FALSE(DaApi::Ksx::IsPlainText(std::string("a\0b", 3)));
    EXPECT_FALSE(DaApi::Ksx::IsPlainText("\x1B[0m"));
    EXPECT_FALSE(DaApi::Ksx::IsPlainText("del\x7F"));
}

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
