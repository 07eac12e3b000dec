// Text conversions: round trips, malformed input, UTF-16LE bytes, placeholders.
#include "core/common/strings.h"

#include <gtest/gtest.h>

#include "core/common/source_position.h"

namespace {

using namespace Common;

TEST(StringsTest, Utf8RoundTripsThroughWideText) {
    std::string text = "Gr\xC3\xBC\xC3\x9F" "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80";
    EXPECT_EQ(WideToUtf8(Utf8ToWide(text)), text);
}

TEST(StringsTest, MalformedUtf8BecomesReplacementCharacters) {
    EXPECT_EQ(WideToUtf8(Utf8ToWide("a\xFF" "b")), "a\xEF\xBF\xBD" "b");
    EXPECT_EQ(WideToUtf8(Utf8ToWide("\xC0\xAF")), "\xEF\xBF\xBD\xEF\xBF\xBD");  // overlong '/'
    EXPECT_EQ(WideToUtf8(Utf8ToWide("\xE6\x97")), "\xEF\xBF\xBD");               // truncated at the end
    EXPECT_EQ(WideToUtf8(Utf8ToWide("\xED\xA0\x80")), "\xEF\xBF\xBD");           // encoded surrogate
}

TEST(StringsTest, Utf16LeBytesAreTheSameOnEveryPlatform) {
    EXPECT_EQ(WideToUtf16Le(L"A\u00E9"), std::string("A\0\xE9\0", 4));
    std::string pair = WideToUtf16Le(Utf8ToWide("\xF0\x9F\x98\x80"));
    EXPECT_EQ(pair, std::string("\x3D\xD8\x00\xDE", 4));
    EXPECT_EQ(WideToUtf8(Utf16LeToWide(pair)), "\xF0\x9F\x98\x80");
    EXPECT_EQ(Utf16LeToWide(std::string("A\0B", 3)), L"A");  // odd trailing byte dropped
}

TEST(StringsTest, PlaceholdersAreReplacedByIndex) {
    EXPECT_EQ(FormatPlaceholders(L"Product version: {0}.{1}.{2}", {L"24", L"7", L"38530"}),
              L"Product version: 24.7.38530");
    EXPECT_EQ(FormatPlaceholders("Size: {0} bytes {1}", {"12"}), "Size: 12 bytes {1}");
    EXPECT_EQ(FormatPlaceholders("{x} {}", {"a"}), "{x} {}");
}

TEST(StringsTest, PathsRoundTripThroughUtf8) {
    std::string name = "d\xC3\xA9j\xC3\xA0/x.txt";
    EXPECT_EQ(PathToUtf8(PathFromUtf8(name)), name);
}

// A name that is no text in the platform's encoding (a Latin-1 byte on POSIX systems, an unpaired surrogate
// on Windows) converts without throwing; POSIX bytes come back unchanged, the wide text shows U+FFFD.
TEST(StringsTest, PathsThatAreNotTextConvertWithoutThrowing) {
    using Native = std::filesystem::path::string_type;
    constexpr bool kBytes = sizeof(Native::value_type) == 1;
    Native native{'c', 'a', 'f', static_cast<Native::value_type>(kBytes ? 0xE9 : 0xD800)};
    std::filesystem::path path(native);
    EXPECT_EQ(PathToWide(path), kBytes ? std::wstring(L"caf\xFFFD") : std::wstring(native.begin(), native.end()));
    std::string text = PathToUtf8(path);
    EXPECT_EQ(text, kBytes ? std::string("caf\xE9") : std::string("caf\xEF\xBF\xBD"));
    if (kBytes) {
        EXPECT_EQ(PathFromUtf8(text), path);
    }
}

TEST(SourcePositionTest, FunctionNamesLoseReturnTypeAndParameters) {
    EXPECT_EQ(ShortFunctionName("virtual Common::Error SystemReport::ReportProcessBase::Create(const std::filesystem::"
                                "__cxx11::path&, SystemReport::FileEntries&)"),
              "SystemReport::ReportProcessBase::Create");
    EXPECT_EQ(ShortFunctionName("int wmain(int, wchar_t**)"), "wmain");
    EXPECT_EQ(ShortFunctionName("std::map<int, std::pair<int, int> > Ns::F<std::pair<int, int> >(int)"),
              "Ns::F<std::pair<int, int> >");
    EXPECT_EQ(ShortFunctionName("Ns::Run()::<lambda()>"), "Ns::Run");
    EXPECT_EQ(ShortFunctionName("Common::Error SystemReport::{anonymous}::EntryWriter::Store(int)"),
              "SystemReport::EntryWriter::Store");
    EXPECT_EQ(ShortFunctionName("Common::Error Ns::(anonymous namespace)::Store(int)"), "Ns::Store");
    EXPECT_EQ(ShortFunctionName("plain"), "plain");
}

}  // namespace
