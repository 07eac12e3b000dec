// A deflate decoder that keeps only the bit position: block headers, Huffman code tables and symbols are
// decoded as RFC 1951 lays them out, lengths and distances are skipped over. Codes of up to kPrimaryBits
// bits are found by one table lookup; longer ones (rare symbols) canonically, bit by bit.
#include "core/file/zip/deflate_scan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace Zip {
namespace {

constexpr int kMaxCodeBits = 15;
constexpr int kPrimaryBits = 10;
constexpr int kLiteralLengthSymbols = 288;
constexpr int kDistanceSymbols = 32;
constexpr int kEndOfBlock = 256;

constexpr std::array<std::uint8_t, 29> kLengthExtraBits = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                                            2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr std::array<std::uint8_t, 30> kDistanceExtraBits = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                                              6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
// The order in which a dynamic block gives the lengths of the code-length code.
constexpr std::array<std::uint8_t, 19> kCodeLengthOrder = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                            11, 4,  12, 3, 13, 2, 14, 1, 15};

class BitReader {
public:
    explicit BitReader(std::span<const std::uint8_t> bytes) : bytes_(bytes), limit_(bytes.size() * 8) {}

    // The next 56 bits or more, least significant first; bits past the end read as zeros, and Overrun tells.
    std::uint64_t Peek() const {
        const std::size_t byte = static_cast<std::size_t>(position_ >> 3);
        std::uint64_t window = 0;
        if (byte + 8 <= bytes_.size() && std::endian::native == std::endian::little) {
            std::memcpy(&window, bytes_.data() + byte, 8);
        } else {
            for (std::size_t i = 0; i < 8 && byte + i < bytes_.size(); ++i) {
                window |= static_cast<std::uint64_t>(bytes_[byte + i]) << (8 * i);
            }
        }
        return window >> (position_ & 7);
    }

    std::uint32_t Take(int count) {
        const auto value = static_cast<std::uint32_t>(Peek() & ((std::uint64_t{1} << count) - 1));
        position_ += static_cast<unsigned>(count);
        return value;
    }

    void Skip(unsigned count) { position_ += count; }
    void AlignToByte() { position_ = (position_ + 7) & ~std::uint64_t{7}; }
    bool Overrun() const { return position_ > limit_; }
    std::uint64_t Position() const { return position_; }

private:
    std::span<const std::uint8_t> bytes_;
    std::uint64_t position_ = 0;
    std::uint64_t limit_;
};

// A canonical Huffman code built from its code lengths.
class HuffmanCode {
public:
    // False for an over-subscribed set of lengths; an incomplete one is kept, and its unused codes fail.
    bool Build(std::span<const std::uint8_t> lengths) {
        counts_.fill(0);
        primary_.fill(0);
        for (std::uint8_t length : lengths) ++counts_[length];
        counts_[0] = 0;
        int left = 1;
        for (int length = 1; length <= kMaxCodeBits; ++length) {
            left = (left << 1) - counts_[length];
            if (left < 0) return false;
        }
        std::array<std::uint16_t, kMaxCodeBits + 2> offsets{};
        for (int length = 1; length <= kMaxCodeBits; ++length) offsets[length + 1] = offsets[length] + counts_[length];
        for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
            if (lengths[symbol] != 0) symbols_[offsets[lengths[symbol]]++] = static_cast<std::uint16_t>(symbol);
        }
        // Deflate sends a code's bits most significant first into a stream read least significant first, so
        // the table is indexed by the reversed code.
        std::uint32_t code = 0;
        std::size_t index = 0;
        for (int length = 1; length <= kPrimaryBits; ++length, code <<= 1) {
            for (int n = 0; n < counts_[length]; ++n, ++code) {
                const std::uint32_t reversed = Reverse(code, length);
                const auto entry = static_cast<std::uint16_t>(symbols_[index++] << 4 | length);
                for (std::uint32_t slot = reversed; slot < primary_.size(); slot += 1u << length) primary_[slot] = entry;
            }
        }
        return true;
    }

    // The next symbol, or -1 for a code that is not in the set.
    int Decode(BitReader& reader) const {
        const std::uint64_t bits = reader.Peek();
        if (const std::uint16_t entry = primary_[bits & (primary_.size() - 1)]; entry != 0) {
            reader.Skip(entry & 15u);
            return entry >> 4;
        }
        int code = 0, first = 0, index = 0;
        for (int length = 1; length <= kMaxCodeBits; ++length) {
            code |= static_cast<int>((bits >> (length - 1)) & 1);
            const int count = counts_[length];
            if (code - first < count) {
                reader.Skip(static_cast<unsigned>(length));
                return symbols_[index + code - first];
            }
            index += count;
            first = (first + count) << 1;
            code <<= 1;
        }
        return -1;
    }

private:
    static std::uint32_t Reverse(std::uint32_t code, int length) {
        std::uint32_t reversed = 0;
        for (int i = 0; i < length; ++i, code >>= 1) reversed = reversed << 1 | (code & 1);
        return reversed;
    }

    std::array<std::uint16_t, kMaxCodeBits + 1> counts_{};
    std::array<std::uint16_t, kLiteralLengthSymbols> symbols_{};
    std::array<std::uint16_t, 1u << kPrimaryBits> primary_{};
};

struct BlockCodes {
    HuffmanCode literalLength;
    HuffmanCode distance;
};

const BlockCodes& FixedCodes() {
    static const BlockCodes codes = [] {
        BlockCodes fixed;
        std::array<std::uint8_t, kLiteralLengthSymbols> lengths{};
        std::fill(lengths.begin(), lengths.begin() + 144, 8);
        std::fill(lengths.begin() + 144, lengths.begin() + 256, 9);
        std::fill(lengths.begin() + 256, lengths.begin() + 280, 7);
        std::fill(lengths.begin() + 280, lengths.end(), 8);
        fixed.literalLength.Build(lengths);
        std::array<std::uint8_t, kDistanceSymbols> distances{};
        distances.fill(5);
        fixed.distance.Build(distances);
        return fixed;
    }();
    return codes;
}

bool ReadDynamicCodes(BitReader& reader, BlockCodes& codes) {
    const int literalCount = static_cast<int>(reader.Take(5)) + 257;
    const int distanceCount = static_cast<int>(reader.Take(5)) + 1;
    const int codeLengthCount = static_cast<int>(reader.Take(4)) + 4;
    if (literalCount > 286 || distanceCount > 30) return false;
    std::array<std::uint8_t, kCodeLengthOrder.size()> codeLengthLengths{};
    for (int i = 0; i < codeLengthCount; ++i) codeLengthLengths[kCodeLengthOrder[i]] = static_cast<std::uint8_t>(reader.Take(3));
    HuffmanCode codeLengthCode;
    if (!codeLengthCode.Build(codeLengthLengths)) return false;
    std::array<std::uint8_t, 286 + 30> lengths{};
    const int total = literalCount + distanceCount;
    for (int filled = 0; filled < total;) {
        const int symbol = codeLengthCode.Decode(reader);
        if (symbol < 0 || reader.Overrun()) return false;
        if (symbol < 16) {
            lengths[filled++] = static_cast<std::uint8_t>(symbol);
            continue;
        }
        std::uint8_t value = 0;
        int repeat = 0;
        if (symbol == 16) {
            if (filled == 0) return false;
            value = lengths[filled - 1];
            repeat = 3 + static_cast<int>(reader.Take(2));
        } else if (symbol == 17) {
            repeat = 3 + static_cast<int>(reader.Take(3));
        } else {
            repeat = 11 + static_cast<int>(reader.Take(7));
        }
        if (filled + repeat > total) return false;
        std::fill_n(lengths.begin() + filled, repeat, value);
        filled += repeat;
    }
    if (lengths[kEndOfBlock] == 0) return false;
    return codes.literalLength.Build(std::span(lengths).first(literalCount)) &&
           codes.distance.Build(std::span(lengths).subspan(literalCount, distanceCount));
}

// Skips the symbols of one Huffman-coded block, up to and with its end-of-block code.
bool SkipSymbols(BitReader& reader, const BlockCodes& codes) {
    for (;;) {
        if (reader.Overrun()) return false;
        const int symbol = codes.literalLength.Decode(reader);
        if (symbol < kEndOfBlock) {
            if (symbol < 0) return false;
            continue;
        }
        if (symbol == kEndOfBlock) return true;
        const int lengthCode = symbol - 257;
        if (lengthCode >= static_cast<int>(kLengthExtraBits.size())) return false;
        reader.Skip(kLengthExtraBits[lengthCode]);
        const int distanceCode = codes.distance.Decode(reader);
        if (distanceCode < 0 || distanceCode >= static_cast<int>(kDistanceExtraBits.size())) return false;
        reader.Skip(kDistanceExtraBits[distanceCode]);
    }
}

}  // namespace

std::optional<DeflateEnd> ScanDeflate(std::span<const std::uint8_t> stream) {
    BitReader reader(stream);
    BlockCodes dynamic;
    for (;;) {
        const std::uint64_t header = reader.Position();
        const bool final = reader.Take(1) != 0;
        const std::uint32_t type = reader.Take(2);
        bool ok = false;
        if (type == 0) {
            reader.AlignToByte();
            const std::uint32_t length = reader.Take(16);
            const std::uint32_t inverse = reader.Take(16);
            ok = (length ^ inverse) == 0xFFFF && !reader.Overrun();
            if (ok) reader.Skip(length * 8);
        } else if (type == 1) {
            ok = SkipSymbols(reader, FixedCodes());
        } else if (type == 2) {
            ok = ReadDynamicCodes(reader, dynamic) && SkipSymbols(reader, dynamic);
        }
        if (!ok || reader.Overrun()) return std::nullopt;
        if (final) return DeflateEnd{header, reader.Position()};
    }
}

}  // namespace Zip
