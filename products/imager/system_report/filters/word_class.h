// The ECMAScript word class "\w" as this platform's C++ library defines it in the "C" locale.
#pragma once

#include <string>
#include <string_view>

namespace SystemReport::Filters {

// The code units of `bits` width (8 or 16) that std::regex counts as word characters, written as the
// body of a PCRE2 character class ("\x{30}-\x{39}\x{41}-\x{5a}..."). std::regex asks
// std::regex_traits::isctype for the class "w" (alphanumeric or '_'): in the "C" locale that is ASCII
// alone for 8-bit text on every platform and for wide text with the GNU C library, while the Windows C
// library counts every letter and digit of the Basic Multilingual Plane. PCRE2's own "\w" is ASCII
// alone, so the filters spell the class out. Where wchar_t holds code points, code points above the
// Basic Multilingual Plane must not be word characters, as UTF-16 code units cannot express them.
std::string WordClassBody(int bits);

// `pattern` with every "\w" replaced by the class: by `body` inside a bracket expression, by "[body]"
// outside one. Escapes are copied as they are; the patterns use no \Q...\E quoting and no POSIX classes.
std::string ExpandWordClass(std::string_view pattern, std::string_view body);

}  // namespace SystemReport::Filters
