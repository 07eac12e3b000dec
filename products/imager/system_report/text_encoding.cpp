// Encoding detection from a byte-order mark or the shape of the first units.
#include "products/imager/system_report/text_encoding.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace SystemReport {
namespace {

constexpr std::size_t kSampleBytes = 4096;

}  // namespace

TextEncoding DetectTextEncoding(std::string_view bytes) {
    if (bytes.starts_with("\xFF\xFE")) return TextEncoding::Utf16Le;
    if (bytes.starts_with("\xFE\xFF")) return TextEncoding::Utf16Be;
    if (bytes.starts_with("\xEF\xBB\xBF")) return TextEncoding::EightBit;
    const std::string_view sample = bytes.substr(0, std::min(bytes.size(), kSampleBytes) & ~std::size_t{1});
    const std::size_t units = sample.size() / 2;
    std::size_t lowFirst = 0;   // "A\0": an ASCII character in little-endian order
    std::size_t highFirst = 0;  // "\0A"
    for (std::size_t i = 0; i < sample.size(); i += 2) {
        const bool first = sample[i] != 0;
        const bool second = sample[i + 1] != 0;
        const bool ascii = static_cast<unsigned char>(first ? sample[i] : sample[i + 1]) < 0x80;
        if (first && !second && ascii) ++lowFirst;
        if (!first && second && ascii) ++highFirst;
    }
    if (units == 0) return TextEncoding::EightBit;
    if (2 * lowFirst >= units && 16 * highFirst <= units) return TextEncoding::Utf16Le;
    if (2 * highFirst >= units && 16 * lowFirst <= units) return TextEncoding::Utf16Be;
    return TextEncoding::EightBit;
}

void SwapUtf16ByteOrder(std::string& bytes) {
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) std::swap(bytes[i], bytes[i + 1]);
}

}  // namespace SystemReport
