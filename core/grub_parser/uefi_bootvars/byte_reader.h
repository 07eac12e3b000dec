// A cursor over a firmware variable's bytes: every decoding step of load options reads through one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Uefi {

// A read of N bytes fails, and leaves the cursor where it was, when fewer than N are left; a successful
// read moves the cursor on by N. Integers are little-endian, as everywhere in UEFI.
class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::ptrdiff_t Left() const { return static_cast<std::ptrdiff_t>(bytes_.size() - position_); }
    // The bytes not read yet.
    std::span<const std::uint8_t> Rest() const { return bytes_.subspan(position_); }

    bool Read(std::size_t count, std::span<const std::uint8_t>& out);
    bool ReadU8(std::uint8_t& out);
    bool ReadU16(std::uint16_t& out);
    bool ReadU32(std::uint32_t& out);
    bool ReadU64(std::uint64_t& out);
    // Moves back over bytes already read; fails when fewer than `count` were read.
    bool StepBack(std::size_t count);

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

// The little-endian UTF-16 units of `bytes` up to the first zero unit, not included; `terminated` tells
// whether there was one. An odd last byte is no unit. The units are kept as they are (a lone surrogate
// too), so that every platform gives the report the same bytes.
std::u16string Utf16UpToZero(std::span<const std::uint8_t> bytes, bool& terminated);

}  // namespace Uefi
