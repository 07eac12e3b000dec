// Fixed-width field reads from on-disk structures held in byte spans.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace Disk {

using Bytes = std::span<const std::uint8_t>;

// The caller guarantees that the field lies inside `bytes`.
inline std::uint16_t Le16(Bytes bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}
inline std::uint32_t Le32(Bytes bytes, std::size_t offset) {
    return Le16(bytes, offset) | static_cast<std::uint32_t>(Le16(bytes, offset + 2)) << 16;
}
inline std::uint64_t Le64(Bytes bytes, std::size_t offset) {
    return Le32(bytes, offset) | static_cast<std::uint64_t>(Le32(bytes, offset + 4)) << 32;
}
inline std::uint16_t Be16(Bytes bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}
inline std::uint32_t Be32(Bytes bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(Be16(bytes, offset)) << 16 | Be16(bytes, offset + 2);
}
inline std::uint64_t Be64(Bytes bytes, std::size_t offset) {
    return static_cast<std::uint64_t>(Be32(bytes, offset)) << 32 | Be32(bytes, offset + 4);
}

// True when `bytes` holds `magic` at `offset` (false when the span is too short).
inline bool HasMagic(Bytes bytes, std::size_t offset, std::string_view magic) {
    if (offset > bytes.size() || bytes.size() - offset < magic.size()) return false;
    return std::equal(magic.begin(), magic.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

}  // namespace Disk
