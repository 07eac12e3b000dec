// Settings files lose exactly the two stored passwords, whatever their encoding.
#include "products/imager/system_report/settings_file.h"

#include <gtest/gtest.h>

#include "core/common/strings.h"

namespace {

using SystemReport::RemoveSecretSettings;

TEST(SettingsFileTest, OnlyTheTwoKeysAreRemovedInAnySectionAndCase) {
    std::string text =
        "; comment OBPassword=not a key line\r\n[A]\r\nOBPassword=x\r\nOBPasswordHint=kept\r\n"
        "[B]\r\n  obsessionPASSWORD =y\r\nName=OBPassword=z\r\nlast=1";
    EXPECT_EQ(RemoveSecretSettings(text),
              "; comment OBPassword=not a key line\r\n[A]\r\nOBPasswordHint=kept\r\n[B]\r\nName=OBPassword=z\r\nlast=1");
}

TEST(SettingsFileTest, LastLineWithoutLineEndAndBytesAbove127Survive) {
    EXPECT_EQ(RemoveSecretSettings("a=\xE9\xFF\nOBPassword=secret"), "a=\xE9\xFF\n");
}

TEST(SettingsFileTest, Utf16TextKeepsItsByteOrderMark) {
    std::string text = "\xFF\xFE" + Common::WideToUtf16Le(L"[S]\r\nOBSessionPassword=p\r\nUser=\u00E9\r\n");
    EXPECT_EQ(RemoveSecretSettings(text), "\xFF\xFE" + Common::WideToUtf16Le(L"[S]\r\nUser=\u00E9\r\n"));
}

TEST(SettingsFileTest, SettingsFilesAreRecognisedByTheirExtension) {
    EXPECT_TRUE(SystemReport::IsSettingsFile("a/b/Settings.INI"));
    EXPECT_FALSE(SystemReport::IsSettingsFile("a/b/settings.ini.bak"));
    EXPECT_FALSE(SystemReport::IsSettingsFile("a/b/log.txt"));
}

}  // namespace
