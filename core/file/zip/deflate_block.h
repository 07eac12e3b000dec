// One block of an entry's deflate stream, compressed on its own so that blocks compress in parallel and
// are joined in order into one stream (RFC 1951), as parallel gzip tools do.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Zip {

// What a block holds back of the data before it: deflate looks back at most 32 KiB.
inline constexpr std::size_t kDictionarySize = 32 * 1024;

// One raw deflate stream state, reused block after block by one thread.
class BlockDeflater {
public:
    explicit BlockDeflater(int level);
    BlockDeflater(const BlockDeflater&) = delete;
    BlockDeflater& operator=(const BlockDeflater&) = delete;
    ~BlockDeflater();

    // Appends to `out` the deflate blocks for `data`, primed with `dictionary` (the end of the data before
    // it, at most kDictionarySize bytes). A block that is not `last` ends on a byte boundary after a full
    // flush, so the next block's bytes may follow it directly; the `last` one ends the stream. Where deflate
    // does not make the data smaller, stored blocks carry it instead.
    void Compress(std::string_view data, std::string_view dictionary, bool last, std::string& out);

private:
    struct State;
    State* state_;
};

// `data` as stored deflate blocks (at most 65535 bytes each); the last one is final when `last`.
void AppendStoredBlocks(std::string_view data, bool last, std::string& out);

// The bytes that deflate's stored blocks for `size` bytes take.
std::uint64_t StoredBlocksSize(std::uint64_t size);

}  // namespace Zip
