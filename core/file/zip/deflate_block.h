// One block of an entry's deflate stream, compressed on its own so that blocks compress in parallel and
// are joined in order into one stream (RFC 1951), as parallel gzip tools do.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct libdeflate_compressor;

namespace Zip {

// One compressor, reused block after block by one thread.
class BlockDeflater {
public:
    explicit BlockDeflater(int level);
    BlockDeflater(const BlockDeflater&) = delete;
    BlockDeflater& operator=(const BlockDeflater&) = delete;
    ~BlockDeflater();

    // Appends to `out` the deflate blocks for `data`. A block that is not `last` ends on a byte boundary
    // after an empty stored block, as a full flush leaves it, so the next block's bytes may follow it
    // directly; the `last` one ends the stream. Where deflate does not make the data smaller, stored blocks
    // carry it instead.
    void Compress(std::string_view data, bool last, std::string& out);

private:
    libdeflate_compressor* compressor_;
};

// `data` as stored deflate blocks (at most 65535 bytes each); the last one is final when `last`.
void AppendStoredBlocks(std::string_view data, bool last, std::string& out);

// The bytes that deflate's stored blocks for `size` bytes take.
std::uint64_t StoredBlocksSize(std::uint64_t size);

// The CRC-32 of the zip format, continued from `crc` over `data`.
std::uint32_t Crc32(std::uint32_t crc, std::string_view data);

}  // namespace Zip
