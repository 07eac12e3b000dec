// Address conversions of the location detectors: IPv4 and IPv6 addresses to and from text, and the
// link-local range.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace LocationDetector {

// Addresses in network byte order, as they travel in packets.
using Ipv4Address = std::array<std::uint8_t, 4>;
using Ipv6Address = std::array<std::uint8_t, 16>;

// The addresses that RFC 3927 lets a host pick for itself; 169.254.0.x and 169.254.255.x are reserved.
inline constexpr std::string_view kLinkLocalFirst = "169.254.1.0";
inline constexpr std::string_view kLinkLocalLast = "169.254.254.255";

std::string FormatIpv4(const Ipv4Address& address);
// Strict dotted-quad text: four decimal parts of 0 to 255, no signs, no blanks, at most three digits each.
std::optional<Ipv4Address> ParseIpv4(std::string_view text);
// RFC 5952 text: lower-case hexadecimal, the longest run of two or more zero groups shortened to "::".
std::string FormatIpv6(const Ipv6Address& address);

std::uint32_t ToHostOrder(const Ipv4Address& address);
Ipv4Address FromHostOrder(std::uint32_t value);

bool IsLinkLocal(const Ipv4Address& address);

}  // namespace LocationDetector
