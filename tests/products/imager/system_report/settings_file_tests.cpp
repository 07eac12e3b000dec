// Settings files lose exactly the two stored passwords, whatever their encoding.
#include "products/imager/system_report/settings_file.h"

#include <gtest/gtest.h>

#include "core/common/strings.h"

namespace {

TEST(SettingsFileTest, OnlyTheTwoKeysAreRemovedAndEverythingElseIsKept) {
    const std::string utf16 = "\xFF\xFE" + Common::WideToUtf16Le(L"[S]\r\nOBSessionPassword=p\r\nUser=\u00E9\r\n");
    const struct {
        std::string text, scrubbed;
    } cases[] = {
        // In any section and case; comments, other keys and values that merely hold the name are kept.
        {"; comment OBPassword=not a key line\r\n[A]\r\nOBPassword=x\r\nOBPasswordHint=kept\r\n"
         "[B]\r\n  obsessionPASSWORD =y\r\nName=OBPassword=z\r\nlast=1",
         "; comment OBPassword=not a key line\r\n[A]\r\nOBPasswordHint=kept\r\n[B]\r\nName=OBPassword=z\r\nlast=1"},
        // A last line without line end, and bytes above 127.
        {"a=\xE9\xFF\nOBPassword=secret", "a=\xE9\xFF\n"},
        // UTF-16LE keeps its byte-order mark.
        {utf16, "\xFF\xFE" + Common::WideToUtf16Le(L"[S]\r\nUser=\u00E9\r\n")},
    };
    for (const auto& entry : cases) EXPECT_EQ(SystemReport::RemoveSecretSettings(entry.text), entry.scrubbed);
}

TEST(SettingsFileTest, SettingsFilesAreRecognisedByTheirExtension) {
    EXPECT_TRUE(SystemReport::IsSettingsFile("a/b/Settings.INI"));
    EXPECT_FALSE(SystemReport::IsSettingsFile("a/b/settings.ini.bak"));
    EXPECT_FALSE(SystemReport::IsSettingsFile("a/b/log.txt"));
}

}  // namespace
