// Parsing of ECMAScript replacement texts.
#include "products/imager/system_report/filters/replacement_format.h"

namespace SystemReport::Filters {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

void AddLiteral(std::vector<FormatPiece>& pieces, std::string_view text) {
    if (text.empty()) return;
    if (pieces.empty() || pieces.back().kind != FormatPiece::Kind::Literal) pieces.push_back({});
    pieces.back().literal.append(text);
}

}  // namespace

std::vector<FormatPiece> ParseReplacement(std::string_view format, std::size_t groups) {
    std::vector<FormatPiece> pieces;
    std::size_t i = 0;
    while (i < format.size()) {
        std::size_t dollar = format.find('$', i);
        if (dollar == std::string_view::npos) {
            AddLiteral(pieces, format.substr(i));
            break;
        }
        AddLiteral(pieces, format.substr(i, dollar - i));
        i = dollar + 1;
        if (i == format.size()) {
            AddLiteral(pieces, "$");
            break;
        }
        char next = format[i];
        if (next == '$') {
            AddLiteral(pieces, "$");
            ++i;
        } else if (next == '&') {
            pieces.push_back({FormatPiece::Kind::Group, {}, 0});
            ++i;
        } else if (next == '`') {
            pieces.push_back({FormatPiece::Kind::Prefix, {}, 0});
            ++i;
        } else if (next == '\'') {
            pieces.push_back({FormatPiece::Kind::Suffix, {}, 0});
            ++i;
        } else if (IsDigit(next)) {
            std::size_t number = static_cast<std::size_t>(next - '0');
            ++i;
            if (i < format.size() && IsDigit(format[i])) {
                number = number * 10 + static_cast<std::size_t>(format[i] - '0');
                ++i;
            }
            if (number <= groups) pieces.push_back({FormatPiece::Kind::Group, {}, number});
        } else {
            // Not a reference: the "$" is literal and the next character is read as ordinary text.
            AddLiteral(pieces, "$");
        }
    }
    return pieces;
}

}  // namespace SystemReport::Filters
