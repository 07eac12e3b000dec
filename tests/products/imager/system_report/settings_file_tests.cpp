// Settings files lose exactly the two stored passwords, whatever their encoding, line ends and key form.
#include "products/imager/system_report/settings_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

enum class Form { Ansi, Utf8, Utf8Mark, Utf16Le, Utf16LeMark, Utf16Be, Utf16BeMark };

// The bytes of `text` (code units below U+10000, a lone surrogate allowed in the 16-bit forms).
std::string Encode(const std::u16string& text, Form form) {
    std::string out;
    const bool le = form == Form::Utf16Le || form == Form::Utf16LeMark;
    const bool be = form == Form::Utf16Be || form == Form::Utf16BeMark;
    if (form == Form::Utf8Mark) out = "\xEF\xBB\xBF";
    if (form == Form::Utf16LeMark) out = "\xFF\xFE";
    if (form == Form::Utf16BeMark) out = "\xFE\xFF";
    for (char16_t c : text) {
        if (le || be) {
            out += static_cast<char>(le ? c & 0xFF : c >> 8);
            out += static_cast<char>(le ? c >> 8 : c & 0xFF);
        } else if (c < 0x80 || form == Form::Ansi) {
            out += static_cast<char>(c);
        } else {
            out += static_cast<char>(0xC0 | c >> 6);
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::u16string Join(const std::vector<std::u16string>& lines, const std::u16string& end) {
    std::u16string text;
    for (const auto& line : lines) text += line + end;
    return text;
}

TEST(SettingsFileTest, BothKeysGoInEveryEncodingLineEndKeyFormAndPlaceAndNoOtherByteChanges) {
    const Form forms[] = {Form::Ansi, Form::Utf8, Form::Utf8Mark, Form::Utf16Le, Form::Utf16LeMark, Form::Utf16Be, Form::Utf16BeMark};
    const std::u16string lineEnds[] = {u"\r\n", u"\n", u"\r"};
    const std::vector<std::u16string> secrets = {u"OBPassword=s3cretA", u"\t\"obsessionPASSWORD\" \t: s3cretB",
                                                 u"  'OBPASSWORD'\t=s3cretA"};
    const std::vector<std::u16string> kept = {u"[Main]", u"OBPasswordHint=hint", u"Name=OBPassword=x", u"User=\u00E9l\u00E8ve"};
    for (Form form : forms) {
        for (const auto& end : lineEnds) {
            for (std::size_t at : {std::size_t{0}, std::size_t{2}, kept.size()}) {
                std::vector<std::u16string> plain = kept;
                // A lone surrogate, which a decoding scrub would turn into U+FFFD.
                if (form >= Form::Utf16Le) plain.push_back(std::u16string(u"Odd=") + char16_t(0xDC07));
                std::vector<std::u16string> withSecrets = plain;
                withSecrets.insert(withSecrets.begin() + static_cast<std::ptrdiff_t>(at), secrets.begin(), secrets.end());
                std::string text = Encode(Join(withSecrets, end), form);
                SystemReport::RemoveSecretSettings(text);
                SCOPED_TRACE(::testing::Message() << "form " << static_cast<int>(form) << ", end " << end.size()
                                                  << ", at " << at);
                EXPECT_EQ(text, Encode(Join(plain, end), form));
                for (const char* value : {"s3cretA", "s3cretB"}) {
                    for (Form as : {Form::Utf8, Form::Utf16Le, Form::Utf16Be}) {
                        const std::u16string wide(value, value + 7);
                        EXPECT_EQ(text.find(Encode(wide, as)), std::string::npos) << value;
                    }
                }
            }
        }
    }
}

TEST(SettingsFileTest, SettingsFilesAreRecognisedByTheirExtension) {
    EXPECT_TRUE(SystemReport::IsSettingsFile("a/b/Settings.INI"));
    EXPECT_FALSE(SystemReport::IsSettingsFile("a/b/settings.ini.bak"));
    EXPECT_FALSE(SystemReport::IsSettingsFile("a/b/log.txt"));
}

}  // namespace
