// Windows: a store that the system holds open (its file cannot be read) is dumped from the running system's
// store under HKEY_LOCAL_MACHINE\BCD00000000, which this test fills with the real "reg import".
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "core/common/windows_api.h"
#include "core/da_api/ksx_report.h"
#include "tests/core/da_api/ksx/fake_boot_disks.h"

namespace {

TEST(KsxRunningStore, StoreHeldBySystemIsReadFromTheRegistry) {
    std::filesystem::path reg = std::filesystem::path(SR_BOOT_FIXTURES_DIR) / "bcd.reg";
    if (!std::filesystem::exists(reg)) GTEST_SKIP() << "no bcd.reg fixture (make_boot_fixtures.sh needs root)";
    std::wstring command = L"reg import \"" + reg.wstring() + L"\"";
    ASSERT_EQ(_wsystem(command.c_str()), 0);

    KsxTest::FakeFolder root;
    KsxTest::FakeFolder& boot = root.Folder("Boot");
    boot.File("BCD", "the system holds this file");
    boot.readFailure = ERROR_SHARING_VIOLATION;
    KsxTest::InstallDisks({{0x80, {{1, false, true, std::make_shared<const KsxTest::FakeFolder>(root)}}}});
    std::ostringstream out;
    ASSERT_TRUE(DaApi::WriteKsxReport(&out, std::filesystem::temp_directory_path()).Succeeded());
    std::string text = out.str();
    std::size_t at = text.find("BCD opened");
    ASSERT_NE(at, std::string::npos) << text;
    EXPECT_EQ(text.substr(at, text.find("  Objects") - at),
              "BCD opened for MBR boottype\r\nBCD dump:\r\nBCD00000000\r\n  Description\r\n"
              "    KeyName: BCD00000000\r\n    System: 1\r\n");
    EXPECT_TRUE(text.ends_with("          Element: 4294971392\r\n\r\n")) << text;
}

}  // namespace
