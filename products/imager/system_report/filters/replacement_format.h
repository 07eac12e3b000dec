// Replacement texts in the ECMAScript format of std::regex_replace (format_default), parsed once.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace SystemReport::Filters {

// One piece of a parsed replacement: literal text, a captured group (0 is the whole match), or the text
// before or after the match.
struct FormatPiece {
    enum class Kind { Literal, Group, Prefix, Suffix };
    Kind kind = Kind::Literal;
    std::string literal;  // ASCII; only for Literal
    std::size_t group = 0;
};

// Parses `format` as libstdc++'s match_results::format does with format_default: "$$" is "$", "$&" the
// match, "$`" the text before it, "$'" the text after it, "$n" and "$nn" (one or two ASCII digits, taken
// greedily) the group of that number, which gives nothing when the pattern has fewer groups ("$10" with
// one group is empty, not group 1 and a "0"); "$0" is the whole match; any other "$" stays as it is.
// `groups` counts the capturing groups of the pattern, not the whole match.
std::vector<FormatPiece> ParseReplacement(std::string_view format, std::size_t groups);

}  // namespace SystemReport::Filters
