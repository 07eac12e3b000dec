// The rule tables of the redaction filters and the byte handling around them.
//
// The reference for every rule is ECMAScript std::regex with icase, replacing each match in turn as
// std::regex_replace does. Where a pattern below differs from that plain form (shown in its comment),
// the change only spares the engine work that cannot lead to a match; the output is the same.
#include "products/imager/system_report/filters/text_data_filter.h"

#include <span>

namespace SystemReport {
namespace {

constexpr Filters::RuleText kTextRules[] = {
    {R"((user[ ]?name[:]?)([^\n]+))", "$1 ***"},
    {R"((curuser)([^\n]+))", "$1 ***"},
    {R"((password)([^\n]+))", "$1 ***"},
    {R"((private)([^\n]+))", "$1 ***"},
    // ([^\n]*)(\\Users\\)([^\\]+)([^\n]*). A match ends at a line end (the last group takes the rest of
    // the line), so each search begins at the start of the text or at a line end; and a line with no match
    // from its start has none from a later place in it. Matches therefore begin at line starts only, and
    // "^" spares the engine trying every other place of a line, which costs time quadratic in its length.
    {R"((?m)^([^\n]*)(\\Users\\)([^\\]+)([^\n]*))", "$1$2***$4"},
    {R"((SeLockMemoryPrivilege = )([^\n]+))", "$1 ***"},
    {R"((BEGIN CERTIFICATE-----)([^ ]+)(-----END CERTIFICATE))", "$1 *** $3"},
    // ([\.\w\-]+@[\w\-]+\.[\w]{2,4}). An address that starts inside a run of address characters could
    // also start one character earlier, so the leftmost match begins where the search begins (\G) or where
    // such a run begins; a long run without an address is then scanned once instead of once per character.
    {R"((?:\G|(?<![\.\w\-]))([\.\w\-]+@[\w\-]+\.[\w]{2,4}))", "***@**.**"},
    // (<LocationLogin>)([^\n]+)(</LocationLogin>). When no closing tag follows an opening tag on its line,
    // none follows a later opening tag on that line either: the search goes on at the line end.
    {R"((<LocationLogin>)(?:([^\n]+)(</LocationLogin>)|[^\n]*+(*SKIP)(*FAIL)))", "$1 *** $3"},
};

constexpr Filters::RuleText kWideTextRules[] = {
    {R"((username)([^\n<>\]\]]+))", "$1 ***"},
    {R"((password)([^\n]+))", "$1 ***"},
    {R"((private)([^\n]+))", "$1 ***"},
    // As rule 8 of the 8-bit table.
    {R"((?:\G|(?<![\.\w\-]))([\.\w\-]+@[\w\-]+\.[\w]{2,4}))", "***@**.**"},
};

constexpr std::uint16_t kByteOrderMark = 0xFEFF;

}  // namespace

TextDataFilter::TextDataFilter() : engine_(std::make_unique<Filters::RuleEngine<std::uint8_t>>(kTextRules)) {}

TextDataFilter::~TextDataFilter() = default;

Common::Error TextDataFilter::Filter(const std::string& text, std::string& filtered) const {
    std::vector<std::uint8_t> result;
    std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    if (Common::Error error = engine_->Apply(bytes, result); error.Failed()) return error;
    filtered.assign(result.begin(), result.end());
    return {};
}

TextDataFilterWString::TextDataFilterWString()
    : engine_(std::make_unique<Filters::RuleEngine<std::uint16_t>>(kWideTextRules)) {}

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
