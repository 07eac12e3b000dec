// Finds where a raw deflate stream (RFC 1951) ends and where its final block begins, by decoding its codes
// without producing its data. A compressor that can only make whole streams gives blocks that end the
// stream; with the final block known, the stream is continued by clearing that block's BFINAL bit.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace Zip {

struct DeflateEnd {
    std::uint64_t finalHeaderBit = 0;  // offset, in bits from the first byte, of the final block's BFINAL bit
    std::uint64_t endBit = 0;          // offset of the first bit after the final block
};

// Nothing when `stream` is not one whole, well-formed deflate stream.
std::optional<DeflateEnd> ScanDeflate(std::span<const std::uint8_t> stream);

}  // namespace Zip
