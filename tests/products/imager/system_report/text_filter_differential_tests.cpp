// The filters against their reference, std::regex: generated texts for both tables, the replacement
// format, empty matches, and the character classes of this platform's C++ library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <locale>
#include <memory>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "products/imager/system_report/filters/rule_engine.h"
#include "products/imager/system_report/filters/text_data_filter.h"
#include "products/imager/system_report/filters/word_class.h"
#include "tests/products/imager/system_report/text_filter_corpus.h"
#include "tests/products/imager/system_report/text_filter_oracle.h"

namespace {

using SystemReport::Filters::RuleEngine;
using SystemReport::Filters::RuleText;

// Where two texts first differ, for a readable failure on a text of some kilobytes.
template <typename Units>
std::string FirstDifference(const Units& actual, const Units& expected) {
    auto [a, e] = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    return "sizes " + std::to_string(actual.size()) + " and " + std::to_string(expected.size()) +
           ", first difference at " + std::to_string(a - actual.begin());
}

std::string Utf16Le(const std::vector<std::uint16_t>& units) {
    std::string bytes;
    for (std::uint16_t unit : units) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

// The text streams through the rules in pieces: pieces of every size, down to one unit, must not
// change a byte of the result.
constexpr std::size_t kPieceSizes[] = {1, 2, 3, 7, 64, 1000, SystemReport::Filters::RuleEngine<char>::kPieceUnits};

// A generated text as the filter takes it, and the reference's result as the filter gives it.
struct Generated {
    std::string text;
    std::string expected;
};

Generated Narrow(std::mt19937& random, std::size_t size, std::size_t maxLine, bool fullLines) {
    std::string text = FilterCorpus::Text(random, size, maxLine, fullLines);
    return {text, FilterOracle::FilterText(text)};
}

Generated Wide(std::mt19937& random, std::size_t size, std::size_t maxLine, bool fullLines) {
    std::vector<std::uint16_t> units = FilterCorpus::WideText(random, size, maxLine, fullLines);
    return {Utf16Le(units), Utf16Le(FilterOracle::FilterUnits(units))};
}

template <typename Filter>
void ExpectGeneratedTextsGiveTheReferencesBytes(std::uint32_t randomStart,
                                                Generated (*generate)(std::mt19937&, std::size_t, std::size_t, bool)) {
    std::vector<std::unique_ptr<Filter>> filters;
    for (std::size_t piece : kPieceSizes) filters.push_back(std::make_unique<Filter>(piece));
    std::mt19937 random(randomStart);
    for (int round = 0; round < 400; ++round) {
        // Lines stay far below the length at which the reference itself overflows its stack; every
        // hundredth text has lines of 20 KB, longer than the pieces of a filter made by default.
        const bool longLines = round % 100 == 99;
        const std::size_t which = longLines ? filters.size() - 1 : round % filters.size();
        const Generated text = longLines ? generate(random, 40 << 10, 20 << 10, true)
                                         : generate(random, 64 + random() % 6000, 16 + random() % 1500, false);
        std::string filtered;
        ASSERT_TRUE(filters[which]->Filter(text.text, filtered).Succeeded());
        ASSERT_EQ(filtered, text.expected) << "round " << round << ", pieces of " << kPieceSizes[which] << ": "
                                           << FirstDifference(filtered, text.expected);
    }
}

TEST(TextFilterDifferentialTest, GeneratedTextsGiveTheReferencesBytes) {
    ExpectGeneratedTextsGiveTheReferencesBytes<SystemReport::TextDataFilter>(20240501, Narrow);
    ExpectGeneratedTextsGiveTheReferencesBytes<SystemReport::TextDataFilterWString>(20240502, Wide);
}

// A streamed text, cut into pieces of random sizes (inside lines, inside key words), gives the same bytes;
// the lines that no rule can touch pass by the rules, so this also checks where the windows of lines that
// go through them begin and end.
TEST(TextFilterDifferentialTest, StreamedTextsGiveTheReferencesBytes) {
    const SystemReport::TextDataFilter filter;
    std::mt19937 random(20240503);
    for (int round = 0; round < 300; ++round) {
        const Generated text = Narrow(random, 64 + random() % 6000, 16 + random() % 1500, false);
        const std::size_t largest = 1 + random() % 400;
        std::unique_ptr<SystemReport::CopyFileFilter::Stream> stream = filter.StartStream();
        std::string filtered;
        std::string_view rest = text.text;
        do {
            const std::size_t piece = std::min<std::size_t>(rest.size(), random() % largest);
            ASSERT_TRUE(stream->Push(rest.substr(0, piece), piece == rest.size(), filtered).Succeeded());
            rest.remove_prefix(piece);
        } while (!rest.empty());
        ASSERT_EQ(filtered, text.expected) << "round " << round << ": " << FirstDifference(filtered, text.expected);
    }
}

// Every unit above ASCII (each byte 0x80-0xFF, each unit of the Basic Multilingual Plane) around and
// inside addresses: whatever this platform's C library counts as a letter or digit, the filter and the
// reference agree on it.
std::vector<std::uint16_t> AroundEveryUnit(std::uint32_t last) {
    std::vector<std::uint16_t> units;
    for (std::uint32_t c = 0x80; c <= last; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        const std::u16string u(1, static_cast<char16_t>(c));
        const std::u16string text = u"a" + u + u"@" + u + u"." + u + u + u" " + u + u"x@y.de" + u + u"\n";
        units.insert(units.end(), text.begin(), text.end());
    }
    return units;
}

TEST(TextFilterDifferentialTest, UnitsOutsideAsciiAgreeWithTheReference) {
    const std::vector<std::uint16_t> bytes = AroundEveryUnit(0xFF);
    const std::string text(bytes.begin(), bytes.end());
    std::string filtered;
    ASSERT_TRUE(SystemReport::TextDataFilter().Filter(text, filtered).Succeeded());
    std::string expected = FilterOracle::FilterText(text);
    EXPECT_EQ(filtered, expected) << FirstDifference(filtered, expected);

    const std::vector<std::uint16_t> units = AroundEveryUnit(0xFFFF);
    ASSERT_TRUE(SystemReport::TextDataFilterWString().Filter(Utf16Le(units), filtered).Succeeded());
    expected = Utf16Le(FilterOracle::FilterUnits(units));
    EXPECT_EQ(filtered, expected) << FirstDifference(filtered, expected);
}

// Runs one rule through the engine (whole and in one-unit pieces) and through std::regex_replace, for
// both widths.
void ExpectSameAsReference(const std::string& pattern, const std::string& format, const std::string& text) {
    const RuleText rule[] = {{pattern, format}};
    const auto flags = std::regex_constants::ECMAScript | std::regex_constants::icase;
    const std::string expected = std::regex_replace(text, std::regex(pattern, flags), format);
    const std::wstring wide = std::regex_replace(std::wstring(text.begin(), text.end()),
                                                 std::wregex(std::wstring(pattern.begin(), pattern.end()), flags),
                                                 std::wstring(format.begin(), format.end()));
    for (std::size_t piece : {std::size_t(1), RuleEngine<char>::kPieceUnits}) {
        std::string bytes;
        ASSERT_TRUE(RuleEngine<char>(rule, piece).Apply(text, bytes).Succeeded());
        EXPECT_EQ(bytes, expected) << "pattern " << pattern << ", format " << format << ", text " << text;

        std::vector<std::uint16_t> units;
        ASSERT_TRUE(RuleEngine<std::uint16_t>(rule, piece)
                        .Apply(std::vector<std::uint16_t>(text.begin(), text.end()), units)
                        .Succeeded());
        EXPECT_EQ(units, std::vector<std::uint16_t>(wide.begin(), wide.end()))
            << "pattern " << pattern << ", format " << format << ", text " << text;
    }
}

TEST(RuleEngineTest, ReplacementFormatIsThatOfRegexReplace) {
    // "$0" is the whole match, "$10" with fewer groups is empty (not "$1" and "0"), a reference to a group
    // that did not take part is empty, and a "$" that starts no reference is kept.
    for (const char* format : {"$1", "$2", "$&", "$0", "$`", "$'", "$$", "$", "a$", "$x", "$$1", "$10", "$01",
                               "$3", "$99", "<$2|$1>", "$`$'$&", "$$$", "[$1$]"}) {
        for (const char* text : {"", "xaby ab a", "ab", "b a b"}) ExpectSameAsReference("(a)(b)?", format, text);
    }
}

TEST(RuleEngineTest, EmptyMatchesAdvanceAsRegexReplaceDoes) {
    // After an empty match the reference first tries a non-empty match at the same place.
    for (const char* pattern : {"x*", "a*?", "(ab)*", "b?", "a|b*", "(?:)", "\\bx*", "^a*"}) {
        for (const char* text : {"", "x", "axbxx", "bab", "aaa", "ab\nab", "xx yx"}) {
            ExpectSameAsReference(pattern, "[$&]", text);
            ExpectSameAsReference(pattern, "[$`|$']", text);
        }
    }
}

// PCRE2 matches its caseless patterns by ASCII case alone; the reference folds by translate_nocase.
TEST(WordClassTest, TheCLocaleFoldsOnlyAsciiLetters) {
    std::regex_traits<char> narrow;
    for (int c = 0; c < 256; ++c) {
        char expected = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : static_cast<char>(c);
        EXPECT_EQ(narrow.translate_nocase(static_cast<char>(c)), expected) << c;
    }
    std::regex_traits<wchar_t> wide;
    const std::uint32_t last = sizeof(wchar_t) == 2 ? 0xFFFF : 0x10FFFF;
    for (std::uint32_t c = 0x80; c <= last; ++c) {
        ASSERT_EQ(wide.translate_nocase(static_cast<wchar_t>(c)), static_cast<wchar_t>(c)) << std::hex << c;
    }
}

TEST(WordClassTest, ClassesAreTakenFromTheReference) {
    EXPECT_EQ(SystemReport::Filters::WordClassBody(8), "\\x{30}-\\x{39}\\x{41}-\\x{5a}\\x{5f}\\x{61}-\\x{7a}");
    EXPECT_EQ(SystemReport::Filters::WordClassBody(16).rfind("\\x{30}-\\x{39}\\x{41}-\\x{5a}\\x{5f}\\x{61}-\\x{7a}", 0), 0u);
    // UTF-16 code units cannot express a word character beyond the Basic Multilingual Plane.
    if (sizeof(wchar_t) == 4) {
        std::regex_traits<wchar_t> traits;
        const auto word = traits.lookup_classname(L"w", L"w" + 1);
        for (std::uint32_t c = 0x10000; c <= 0x10FFFF; ++c) {
            ASSERT_FALSE(traits.isctype(static_cast<wchar_t>(c), word)) << std::hex << c;
        }
    }
}

TEST(WordClassTest, ExpansionKeepsEscapesAndBrackets) {
    using SystemReport::Filters::ExpandWordClass;
    EXPECT_EQ(ExpandWordClass(R"([\.\w\-]+@\w)", "W"), R"([\.W\-]+@[W])");
    EXPECT_EQ(ExpandWordClass(R"(\\w[\\]\w)", "W"), R"(\\w[\\][W])");
    EXPECT_EQ(ExpandWordClass(R"([]\w][^]\w])", "W"), R"([]W][^]W])");
}

}  // namespace
