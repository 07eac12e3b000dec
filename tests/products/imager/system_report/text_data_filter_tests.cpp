// The redaction filters: edge cases of the rule tables (every row also runs against the reference in the
// differential test), the effects and quirks of the reference that are kept, the UTF-16LE framing, and
// inputs far larger than the reference can take.
#include "products/imager/system_report/filters/text_data_filter.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using SystemReport::TextDataFilter;
using SystemReport::TextDataFilterWString;

std::string Filter8(const std::string& text) {
    static const TextDataFilter filter;
    std::string filtered = "left over";
    Common::Error error = filter.Filter(text, filtered);
    EXPECT_TRUE(error.Succeeded()) << error.ToString();
    return filtered;
}

std::string Utf16Le(const std::u16string& text) {
    std::string bytes;
    for (char16_t unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

std::string FilterBytes16(const std::string& bytes) {
    static const TextDataFilterWString filter;
    std::string filtered = "left over";
    Common::Error error = filter.Filter(bytes, filtered);
    EXPECT_TRUE(error.Succeeded()) << error.ToString();
    return filtered;
}

std::string Filter16(const std::u16string& text) { return FilterBytes16(Utf16Le(text)); }

TEST(TextDataFilterTest, CasesOfTheRuleTables) {
    // Without JIT the filters stay exact but run many times slower: that must not pass unseen.
    EXPECT_TRUE(TextDataFilter().UsesJit());
    EXPECT_TRUE(TextDataFilterWString().UsesJit());
    EXPECT_EQ(Filter8(""), "");
    EXPECT_EQ(FilterBytes16(""), "");
    EXPECT_EQ(Filter8("UserName: jdoe"), "UserName: ***");
    EXPECT_EQ(Filter8("Opened D:\\Users\\jdoe\\AppData\\x.log"), "Opened D:\\Users\\***\\AppData\\x.log");
    EXPECT_EQ(Filter8("Sent to john.doe@example.com at noon\r\nnext"), "Sent to ***@**.** at noon\r\nnext");
    // 16-bit: "username" takes no blank or colon and stops at '<', '>' and ']'.
    EXPECT_EQ(Filter16(u"username<b>"), Utf16Le(u"username<b>"));
    EXPECT_EQ(Filter16(u"username=<b>x</b>"), Utf16Le(u"username ***<b>x</b>"));
    EXPECT_EQ(Filter16(u"[username: jdoe] Password=1"), Utf16Le(u"[username ***] Password ***"));
}

TEST(TextDataFilterTest, IntendedEffectsOfTheRules) {
    // A longer word that begins with a key word is cut too.
    EXPECT_EQ(Filter8("usernames are listed"), "username ***");
    // The user folder is replaced only after the last "\Users\" of a line.
    EXPECT_EQ(Filter8("C:\\Users\\a\\x D:\\Users\\b\\y\nE:\\Users\\c\\z"),
              "C:\\Users\\a\\x D:\\Users\\***\\y\nE:\\Users\\***\\z");
    // A certificate body without blanks is removed, across lines; one with a blank is left alone.
    EXPECT_EQ(Filter8("BEGIN CERTIFICATE-----QUJD\r\nREVG-----END CERTIFICATE-----"),
              "BEGIN CERTIFICATE----- *** -----END CERTIFICATE-----");
    EXPECT_EQ(Filter8("BEGIN CERTIFICATE-----QUJD REVG-----END CERTIFICATE"),
              "BEGIN CERTIFICATE-----QUJD REVG-----END CERTIFICATE");
}

TEST(TextDataFilterTest, QuirksOfTheReferenceAreKept) {
    // [^\n] takes the CR of a CR LF line end.
    EXPECT_EQ(Filter8("UserName: jdoe\r\nnext"), "UserName: ***\nnext");
    // The folder name may run across line ends up to the next backslash.
    EXPECT_EQ(Filter8("C:\\Users\\jdoe\nsecond line\\tail\nthird"), "C:\\Users\\***\\tail\nthird");
    // The top-level domain has no end boundary; the next search starts inside the same word.
    EXPECT_EQ(Filter8("a@b.comxyz"), "***@**.**yz");
    EXPECT_EQ(Filter8("a@b.commmm@x.yz"), "***@**.*****@**.**");
    EXPECT_EQ(Filter16(u"a@b.commmm@x.yz"), Utf16Le(u"***@**.*****@**.**"));
    // Key words match in any case, but only ASCII letters fold: a dotted capital I is no 'i'.
    EXPECT_EQ(Filter8("PR\xC4\xB0VATE=2 PrIvAtE=1"), "PR\xC4\xB0VATE=2 PrIvAtE ***");
    EXPECT_EQ(Filter16(u"PR\u0130VATE=2 pa\u017F\u017Fword=3"), Utf16Le(u"PR\u0130VATE=2 pa\u017F\u017Fword=3"));
    // Any byte is text, NUL included.
    EXPECT_EQ(Filter8(std::string("password\0secret\xFF\nx", 18)), "password ***\nx");
}

TEST(TextDataFilterTest, Utf16FramingIsKept) {
    // The byte-order mark is kept and the text after it is filtered.
    EXPECT_EQ(Filter16(u"\uFEFFpassword=1\r\n"), Utf16Le(u"\uFEFFpassword ***\n"));
    // An odd trailing byte is kept as it is.
    EXPECT_EQ(FilterBytes16(Utf16Le(u"\uFEFFprivate=1") + "Z"), Utf16Le(u"\uFEFFprivate ***") + "Z");
    EXPECT_EQ(FilterBytes16("Z"), "Z");
    // Unpaired surrogates pass through, or go with the span a rule replaces.
    const std::u16string lone = {char16_t(0xDC00), u'a', char16_t(0xD800)};
    EXPECT_EQ(Filter16(lone + u" password=" + lone + u"\n" + lone), Utf16Le(lone + u" password ***\n" + lone));
    // A surrogate pair is matched like the one character it encodes.
    EXPECT_EQ(Filter16(u"username=\U0001F600x\n\U0001F600a@b.cd"), Utf16Le(u"username ***\n\U0001F600***@**.**"));
}

TEST(TextDataFilterTest, LargeInputsThatTheReferenceCannotTake) {
    // Single lines of a megabyte, shaped to make naive matching quadratic: each must finish and be exact.
    const std::size_t megabyte = 1 << 20;
    std::string words(megabyte, 'a');
    EXPECT_EQ(Filter8(words + ".com"), words + ".com");
    std::string paths;
    while (paths.size() < megabyte) paths += "\\x\\Users\\\\";
    EXPECT_EQ(Filter8(paths), paths);
    EXPECT_EQ(Filter8("C:\\Users\\" + words + "\\x"), "C:\\Users\\***\\x");
    std::string logins;
    while (logins.size() < megabyte) logins += "<LocationLogin>a";
    EXPECT_EQ(Filter8(logins), logins);
    EXPECT_EQ(Filter8(logins + "</LocationLogin>"), "<LocationLogin> *** </LocationLogin>");
    EXPECT_EQ(Filter8("BEGIN CERTIFICATE-----" + words), "BEGIN CERTIFICATE-----" + words);
    EXPECT_EQ(Filter8(words + "password" + words), words + "password ***");
    std::u16string wide(megabyte, u'a');
    EXPECT_EQ(Filter16(wide + u".com"), Utf16Le(wide + u".com"));
    EXPECT_EQ(Filter16(wide + u"@" + wide + u".de"), Utf16Le(u"***@**.**"));
}

}  // namespace
