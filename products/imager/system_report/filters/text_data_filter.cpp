// The rule tables of the redaction filters and the byte handling around them.
//
// The reference for every rule is ECMAScript std::regex with icase, replacing each match in turn as
// std::regex_replace does. Where a pattern below differs from that plain form (shown in its comment),
// the change only spares the engine work that cannot lead to a match; the output is the same.
#include "products/imager/system_report/filters/text_data_filter.h"

#include <span>

namespace SystemReport {
namespace {

constexpr const char* kAddressRule = R"(([\.\w\-]++(?:@[\w\-]++\.[\w]{2,4}|(*SKIP)(*FAIL))))";

constexpr Filters::RuleText kTextRules[] = {
    {R"((user[ ]?name[:]?)([^\n]+))", "$1 ***"},
    {R"((curuser)([^\n]+))", "$1 ***"},
    {R"((password)([^\n]+))", "$1 ***"},
    {R"((private)([^\n]+))", "$1 ***"},
    // ([^\n]*)(\\Users\\)([^\\]+)([^\n]*). A match ends at a line end (the last group takes the rest of
    // the line), so each search begins at the start of the text or at a line end; and a line with no match
    // from its start has none from a later place in it. Matches therefore begin at line starts only: "^"
    // spares the engine trying every other place of a line (time quadratic in its length), and the
    // look-ahead passes over lines without "\Users\" at the speed of a plain search.
    {R"((?m)^(?=[^\n]*\\Users\\)([^\n]*)(\\Users\\)([^\\]+)([^\n]*))", "$1$2***$4"},
    {R"((SeLockMemoryPrivilege = )([^\n]+))", "$1 ***"},
    {R"((BEGIN CERTIFICATE-----)([^ ]+)(-----END CERTIFICATE))", "$1 *** $3"},
    // ([\.\w\-]+@[\w\-]+\.[\w]{2,4}). '@' is no address character, so the part before it is always the
    // whole rest of a run of address characters, and the domain always a whole run of [\w\-] up to a '.':
    // the possessive forms give the same matches without backtracking. Where no address starts at some
    // place, none starts later in the same run either, and the search skips to the run's end.
    {kAddressRule, "***@**.**"},
    // (<LocationLogin>)([^\n]+)(</LocationLogin>). When no closing tag follows an opening tag on its line,
    // none follows a later opening tag on that line either: the search goes on at the line end.
    {R"((<LocationLogin>)(?:([^\n]+)(</LocationLogin>)|[^\n]*+(*SKIP)(*FAIL)))", "$1 *** $3"},
};

constexpr Filters::RuleText kWideTextRules[] = {
    {R"((username)([^\n<>\]\]]+))", "$1 ***"},
    {R"((password)([^\n]+))", "$1 ***"},
    {R"((private)([^\n]+))", "$1 ***"},
    {kAddressRule, "***@**.**"},
};

constexpr std::uint16_t kByteOrderMark = 0xFEFF;

}  // namespace

TextDataFilter::TextDataFilter(std::size_t pieceUnits)
    : engine_(std::make_unique<Filters::RuleEngine<char>>(kTextRules, pieceUnits)) {}

TextDataFilter::~TextDataFilter() = default;

Common::Error TextDataFilter::Filter(const std::string& text, std::string& filtered) const {
    if (&text == &filtered) {
        const std::string copy = text;
        return engine_->Apply(copy, filtered);
    }
    return engine_->Apply(text, filtered);
}

TextDataFilterWString::TextDataFilterWString(std::size_t pieceUnits)
    : engine_(std::make_unique<Filters::RuleEngine<std::uint16_t>>(kWideTextRules, pieceUnits)) {}

TextDataFilterWString::~TextDataFilterWString() = default;

Common::Error TextDataFilterWString::Filter(const std::string& text, std::string& filtered) const {
    std::vector<std::uint16_t> units(text.size() / 2);
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<std::uint16_t>(static_cast<unsigned char>(text[2 * i]) |
                                              static_cast<unsigned char>(text[2 * i + 1]) << 8);
    }
    const bool byteOrderMark = !units.empty() && units.front() == kByteOrderMark;
    std::vector<std::uint16_t> result;
    if (Common::Error error = engine_->Apply(std::span<const std::uint16_t>(units).subspan(byteOrderMark ? 1 : 0), result);
        error.Failed()) {
        return error;
    }
    filtered.clear();
    filtered.reserve(2 * result.size() + 3);
    if (byteOrderMark) filtered += "\xFF\xFE";
    for (std::uint16_t unit : result) {
        filtered += static_cast<char>(unit & 0xFF);
        filtered += static_cast<char>(unit >> 8);
    }
    if (text.size() % 2 != 0) filtered += text.back();
    return {};
}

}  // namespace SystemReport
