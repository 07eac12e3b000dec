// Word classes taken from the C++ library's regular-expression traits.
#include "products/imager/system_report/filters/word_class.h"

#include <cstdio>
#include <locale>
#include <regex>

namespace SystemReport::Filters {
namespace {

void AppendUnit(std::string& body, unsigned unit) {
    char text[16];
    std::snprintf(text, sizeof text, "\\x{%x}", unit);
    body += text;
}

template <typename Char>
std::string ClassBody(unsigned last) {
    std::regex_traits<Char> traits;
    traits.imbue(std::locale::classic());
    const Char name[] = {Char('w')};
    const auto word = traits.lookup_classname(name, name + 1);
    auto isWord = [&](unsigned unit) { return traits.isctype(static_cast<Char>(unit), word); };
    std::string body;
    for (unsigned unit = 0; unit <= last; ++unit) {
        if (!isWord(unit)) continue;
        unsigned first = unit;
        while (unit < last && isWord(unit + 1)) ++unit;
        AppendUnit(body, first);
        if (unit != first) {
            body += '-';
            AppendUnit(body, unit);
        }
    }
    return body;
}

}  // namespace

std::string WordClassBody(int bits) {
    if (bits == 8) {
        static const std::string body8 = ClassBody<char>(0xFF);
        return body8;
    }
    static const std::string body16 = ClassBody<wchar_t>(0xFFFF);
    return body16;
}

std::string ExpandWordClass(std::string_view pattern, std::string_view body) {
    std::string expanded;
    bool inClass = false;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        char c = pattern[i];
        if (c == '\\' && i + 1 < pattern.size()) {
            char next = pattern[++i];
            if (next == 'w') {
                if (inClass) {
                    expanded += body;
                } else {
                    expanded += '[';
                    expanded += body;
                    expanded += ']';
                }
            } else {
                expanded += c;
                expanded += next;
            }
            continue;
        }
        if (!inClass && c == '[') {
            inClass = true;
            expanded += c;
            // A ']' right after "[" or "[^" is a member, not the end of the class.
            if (i + 1 < pattern.size() && pattern[i + 1] == '^') expanded += pattern[++i];
            if (i + 1 < pattern.size() && pattern[i + 1] == ']') expanded += pattern[++i];
            continue;
        }
        if (inClass && c == ']') inClass = false;
        expanded += c;
    }
    return expanded;
}

}  // namespace SystemReport::Filters
