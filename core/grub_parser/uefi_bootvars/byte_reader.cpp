// The cursor over a firmware variable's bytes.
#include "core/grub_parser/uefi_bootvars/byte_reader.h"

namespace Uefi {
namespace {

template <typename Integer>
bool ReadLittleEndian(ByteReader& reader, Integer& out) {
    std::span<const std::uint8_t> bytes;
    if (!reader.Read(sizeof(Integer), bytes)) return false;
    Integer value = 0;
    for (std::size_t i = sizeof(Integer); i-- > 0;) value = static_cast<Integer>(value << 8 | bytes[i]);
    out = value;
    return true;
}

}  // namespace

bool ByteReader::Read(std::size_t count, std::span<const std::uint8_t>& out) {
    if (count > bytes_.size() - position_) return false;
    out = bytes_.subspan(position_, count);
    position_ += count;
    return true;
}

bool ByteReader::ReadU8(std::uint8_t& out) { return ReadLittleEndian(*this, out); }
bool ByteReader::ReadU16(std::uint16_t& out) { return ReadLittleEndian(*this, out); }
bool ByteReader::ReadU32(std::uint32_t& out) { return ReadLittleEndian(*this, out); }
bool ByteReader::ReadU64(std::uint64_t& out) { return ReadLittleEndian(*this, out); }

std::u16string Utf16UpToZero(std::span<const std::uint8_t> bytes, bool& terminated) {
    std::u16string text;
    terminated = false;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        auto unit = static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
        if (unit == 0) {
            terminated = true;
            break;
        }
        text += unit;
    }
    return text;
}

bool ByteReader::StepBack(std::size_t count) {
    if (count > position_) return false;
    position_ -= count;
    return true;
}

}  // namespace Uefi
