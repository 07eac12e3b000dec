// Human size strings.
#include "core/da_api/size_string.h"

namespace DaApi {
namespace {

constexpr char kSuffixes[] = {'b', 'K', 'M', 'G', 'T', 'P', 'E'};
constexpr int kLastSuffix = sizeof(kSuffixes) - 1;

// (value + half) / divisor without the sum overflowing near 2^64.
std::uint64_t RoundedQuotient(std::uint64_t value, std::uint64_t divisor, std::uint64_t half) {
    return value / divisor + ((value % divisor) >= divisor - half ? 1 : 0);
}

std::uint64_t HalfUp(std::uint64_t value, std::uint64_t divisor) {
    return RoundedQuotient(value, divisor, divisor / 2);
}

void TrimFraction(std::string& text) {
    if (text.find('.') == std::string::npos) return;
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
}

}  // namespace

std::string SizeString(std::uint64_t bytes) {
    if (bytes < 1000) return std::to_string(bytes) + kSuffixes[0];

    // Move up while the value rounded at this scale still needs four digits. The test is
    // value + scale/2 >= scale * 1000, written so that neither side overflows; scale * 1000 stays below
    // 2^64 up to the "P" step, and "E" is the last one.
    std::uint64_t scale = 1024;
    int suffix = 1;
    while (suffix < kLastSuffix && bytes >= scale * 1000 - scale / 2) {
        scale *= 1024;
        ++suffix;
    }

    std::uint64_t units = HalfUp(bytes, scale);
    std::uint64_t tenthsDivisor = scale / 10;
    std::uint64_t tenths = HalfUp(bytes, tenthsDivisor);
    std::uint64_t hundredths = HalfUp(bytes, tenthsDivisor / 10);

    std::string text;
    if (units >= 10) {
        text = std::to_string(units);
    } else if (tenths >= 10) {
        text = std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
    } else {
        text = "0." + std::to_string(hundredths / 10 % 10) + std::to_string(hundredths % 10);
    }
    TrimFraction(text);
    return text + kSuffixes[suffix];
}

std::string SizeString(std::uint64_t count, std::uint64_t unit) { return SizeString(count * unit); }

}  // namespace DaApi
