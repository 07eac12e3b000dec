// The reference for the redaction filters: their rule tables as ECMAScript std::regex with icase, each
// compiled afresh and applied with std::regex_replace (format_default), in the "C" locale. It is slow and
// recursive in the length of a line (it overflows the stack on lines of some hundred kilobytes), so only
// tests and benchmarks run it, on texts below that size.
#pragma once

#include <cstdint>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace FilterOracle {

using Rules = std::vector<std::pair<std::string, std::string>>;

// The 8-bit table, as the regular-expression text itself.
inline const Rules& TextRules() {
    static const Rules rules = {
        {R"((user[ ]?name[:]?)([^\n]+))", "$1 ***"},
        {R"((curuser)([^\n]+))", "$1 ***"},
        {R"((password)([^\n]+))", "$1 ***"},
        {R"((private)([^\n]+))", "$1 ***"},
        {R"(([^\n]*)(\\Users\\)([^\\]+)([^\n]*))", "$1$2***$4"},
        {R"((SeLockMemoryPrivilege = )([^\n]+))", "$1 ***"},
        {R"((BEGIN CERTIFICATE-----)([^ ]+)(-----END CERTIFICATE))", "$1 *** $3"},
        {R"(([\.\w\-]+@[\w\-]+\.[\w]{2,4}))", "***@**.**"},
        {R"((<LocationLogin>)([^\n]+)(</LocationLogin>))", "$1 *** $3"},
    };
    return rules;
}

// The 16-bit table.
inline const Rules& WideTextRules() {
    static const Rules rules = {
        {R"((username)([^\n<>\]\]]+))", "$1 ***"},
        {R"((password)([^\n]+))", "$1 ***"},
        {R"((private)([^\n]+))", "$1 ***"},
        {R"(([\.\w\-]+@[\w\-]+\.[\w]{2,4}))", "***@**.**"},
    };
    return rules;
}

template <typename Char>
std::basic_string<Char> Replace(std::basic_string<Char> text, const Rules& rules) {
    for (const auto& [pattern, replacement] : rules) {
        std::basic_regex<Char> regex(std::basic_string<Char>(pattern.begin(), pattern.end()),
                                     std::regex_constants::ECMAScript | std::regex_constants::icase);
        text = std::regex_replace(text, regex, std::basic_string<Char>(replacement.begin(), replacement.end()));
    }
    return text;
}

inline std::string FilterText(const std::string& text) { return Replace(text, TextRules()); }

// UTF-16 code units as wide text: one character per code unit where wchar_t is 16 bits wide, one per
// code point where it holds code points; an unpaired surrogate stays a character of its own value.
inline std::wstring UnitsToWide(const std::vector<std::uint16_t>& units) {
    std::wstring wide;
    for (std::size_t i = 0; i < units.size(); ++i) {
        std::uint32_t unit = units[i];
        if (sizeof(wchar_t) == 4 && unit >= 0xD800 && unit <= 0xDBFF && i + 1 < units.size() &&
            units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
            wide += static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (units[i + 1] - 0xDC00));
            ++i;
        } else {
            wide += static_cast<wchar_t>(unit);
        }
    }
    return wide;
}

inline std::vector<std::uint16_t> WideToUnits(const std::wstring& wide) {
    std::vector<std::uint16_t> units;
    for (wchar_t c : wide) {
        auto value = static_cast<std::uint32_t>(c);
        if (value > 0xFFFF) {
            units.push_back(static_cast<std::uint16_t>(0xD800 + ((value - 0x10000) >> 10)));
            units.push_back(static_cast<std::uint16_t>(0xDC00 + ((value - 0x10000) & 0x3FF)));
        } else {
            units.push_back(static_cast<std::uint16_t>(value));
        }
    }
    return units;
}

inline std::vector<std::uint16_t> FilterUnits(const std::vector<std::uint16_t>& units) {
    return WideToUnits(Replace(UnitsToWide(units), WideTextRules()));
}

}  // namespace FilterOracle
