// The boot configuration report over fake disks and volumes: the walk and its numbering, the content rules,
// and the BCD part over a store made by hivexregedit.
#include <gtest/gtest.h>

#include <filesystem>


#include "core/da_api/ksx_content.h"
#include "core/da_api/ksx_report.h"
#include "tests/core/da_api/ksx/fake_boot_disks.h"

namespace {

using KsxTest::FakeFolder;
using KsxTest::KsxReport;

constexpr const char* kHeader = "\r\n------ Selvora report ------\r\n\r\n";

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

}  // namespace
