// Little-endian field reads from a byte span, for the on-disk structures the report prints.
#pragma once

#include <cstdint>
#include <span>

namespace DaApi {

// The caller guarantees that the field lies inside `bytes`.
inline std::uint16_t Le16(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}
inline std::uint32_t Le32(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(Le16(bytes, offset)) | static_cast<std::uint32_t>(Le16(bytes, offset + 2)) << 16;
}
inline std::uint64_t Le64(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint64_t>(Le32(bytes, offset)) | static_cast<std::uint64_t>(Le32(bytes, offset + 4)) << 32;
}

}  // namespace DaApi
