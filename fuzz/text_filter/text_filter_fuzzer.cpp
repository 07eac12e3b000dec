// libFuzzer target: arbitrary bytes through both redaction filters, streamed in pieces of a size the
// input chooses; short inputs are also run through the std::regex reference and must give its bytes.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "products/imager/system_report/filters/text_data_filter.h"
#include "tests/products/imager/system_report/text_filter_oracle.h"

namespace {

// Short enough that the reference neither recurses too deep nor takes long.
constexpr std::size_t kReferenceLimit = 2048;

std::vector<std::uint16_t> Units(const std::string& bytes) {
    std::vector<std::uint16_t> units(bytes.size() / 2);
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                              static_cast<unsigned char>(bytes[2 * i + 1]) << 8);
    }
    return units;
}

std::string Bytes(const std::vector<std::uint16_t>& units) {
    std::string bytes;
    for (std::uint16_t unit : units) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    static const std::size_t pieces[] = {1, 3, 64, SystemReport::Filters::RuleEngine<char>::kPieceUnits};
    static const SystemReport::TextDataFilter narrowFilters[] = {
        SystemReport::TextDataFilter(pieces[0]), SystemReport::TextDataFilter(pieces[1]),
        SystemReport::TextDataFilter(pieces[2]), SystemReport::TextDataFilter(pieces[3])};
    static const SystemReport::TextDataFilterWString wideFilters[] = {
        SystemReport::TextDataFilterWString(pieces[0]), SystemReport::TextDataFilterWString(pieces[1]),
        SystemReport::TextDataFilterWString(pieces[2]), SystemReport::TextDataFilterWString(pieces[3])};
    const SystemReport::TextDataFilter& narrow = narrowFilters[data[0] % 4];
    const SystemReport::TextDataFilterWString& wide = wideFilters[data[0] % 4];
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

    std::string filtered;
    if (narrow.Filter(text, filtered).Failed()) __builtin_trap();
    if (text.size() <= kReferenceLimit && filtered != FilterOracle::FilterText(text)) __builtin_trap();

    // As 16-bit text: an even length without a byte-order mark, so that the reference sees the same units.
    const std::string even = text.substr(0, text.size() & ~std::size_t(1));
    if (wide.Filter(even, filtered).Failed()) __builtin_trap();
    const std::vector<std::uint16_t> units = Units(even);
    if (even.size() <= kReferenceLimit && (units.empty() || units.front() != 0xFEFF) &&
        filtered != Bytes(FilterOracle::FilterUnits(units))) {
        __builtin_trap();
    }
    return 0;
}
