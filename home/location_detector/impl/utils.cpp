// Address conversions of the location detectors.
#include "home/location_detector/impl/utils.h"

#include <cstdio>

namespace LocationDetector {

std::string FormatIpv4(const Ipv4Address& address) {
    return std::to_string(address[0]) + '.' + std::to_string(address[1]) + '.' + std::to_string(address[2]) + '.' +
           std::to_string(address[3]);
}

std::optional<Ipv4Address> ParseIpv4(std::string_view text) {
    Ipv4Address address{};
    size_t position = 0;
    for (size_t part = 0; part < 4; ++part) {
        if (part > 0) {
            if (position >= text.size() || text[position] != '.') return std::nullopt;
            ++position;
        }
        unsigned value = 0;
        size_t digits = 0;
        while (position < text.size() && text[position] >= '0' && text[position] <= '9' && digits < 3) {
            value = value * 10 + static_cast<unsigned>(text[position] - '0');
            ++position;
            ++digits;
        }
        if (digits == 0 || value > 255) return std::nullopt;
        address[part] = static_cast<std::uint8_t>(value);
    }
    if (position != text.size()) return std::nullopt;
    return address;
}

std::string FormatIpv6(const Ipv6Address& address) {
    std::uint16_t groups[8];
    for (size_t i = 0; i < 8; ++i) groups[i] = static_cast<std::uint16_t>(address[2 * i] << 8 | address[2 * i + 1]);
    size_t bestStart = 8, bestLength = 0;
    for (size_t i = 0; i < 8;) {
        if (groups[i] != 0) {
            ++i;
            continue;
        }
        size_t start = i;
        while (i < 8 && groups[i] == 0) ++i;
        if (i - start > bestLength) {
            bestStart = start;
            bestLength = i - start;
        }
    }
    if (bestLength < 2) bestStart = 8;
    std::string text;
    for (size_t i = 0; i < 8; ++i) {
        if (i == bestStart) {
            text += "::";
            i += bestLength - 1;
            continue;
        }
        if (!text.empty() && text.back() != ':') text += ':';
        char buffer[8];
        std::snprintf(buffer, sizeof buffer, "%x", static_cast<unsigned>(groups[i]));
        text += buffer;
    }
    return text;
}

std::uint32_t ToHostOrder(const Ipv4Address& address) {
    return static_cast<std::uint32_t>(address[0]) << 24 | static_cast<std::uint32_t>(address[1]) << 16 |
           static_cast<std::uint32_t>(address[2]) << 8 | address[3];
}

Ipv4Address FromHostOrder(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
            static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

bool IsLinkLocal(const Ipv4Address& address) {
    static const std::uint32_t first = ToHostOrder(*ParseIpv4(kLinkLocalFirst));
    static const std::uint32_t last = ToHostOrder(*ParseIpv4(kLinkLocalLast));
    std::uint32_t value = ToHostOrder(address);
    return value >= first && value <= last;
}

}  // namespace LocationDetector
