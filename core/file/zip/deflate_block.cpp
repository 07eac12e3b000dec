// Block compression over zlib: deflateSetDictionary primes a block with the end of the one before it, and a
// full flush ends it on a byte boundary (an empty stored block), so that blocks are joined by plain
// concatenation.
#include "core/file/zip/deflate_block.h"

#include <zlib.h>

#include <algorithm>
#include <new>

namespace Zip {
namespace {

constexpr std::size_t kStoredBlockMax = 0xFFFF;
constexpr std::size_t kStoredHeader = 5;  // the header byte, LEN and NLEN
constexpr int kMemoryLevel = 8;

}  // namespace

struct BlockDeflater::State {
    z_stream stream{};
};

BlockDeflater::BlockDeflater(int level) : state_(new State) {
    if (deflateInit2(&state_->stream, level, Z_DEFLATED, -MAX_WBITS, kMemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK) {
        delete state_;
        throw std::bad_alloc();
    }
}

BlockDeflater::~BlockDeflater() {
    deflateEnd(&state_->stream);
    delete state_;
}

void BlockDeflater::Compress(std::string_view data, std::string_view dictionary, bool last, std::string& out) {
    z_stream& stream = state_->stream;
    deflateReset(&stream);
    if (!dictionary.empty()) {
        dictionary = dictionary.substr(dictionary.size() - std::min(dictionary.size(), kDictionarySize));
        deflateSetDictionary(&stream, reinterpret_cast<const Bytef*>(dictionary.data()),
                             static_cast<uInt>(dictionary.size()));
    }
    const std::size_t start = out.size();
    const std::uint64_t storedSize = StoredBlocksSize(data.size());
    // Bound on what deflate makes of the block, flush markers included; reserving it means one pass.
    out.resize(start + deflateBound(&stream, static_cast<uLong>(data.size())) + 16);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data() + start);
    stream.avail_out = static_cast<uInt>(out.size() - start);
    int status = deflate(&stream, last ? Z_FINISH : Z_FULL_FLUSH);
    const std::size_t produced = out.size() - start - stream.avail_out;
    const bool complete = last ? status == Z_STREAM_END : status == Z_OK && stream.avail_in == 0;
    if (!complete || produced >= storedSize) {
        out.resize(start);
        AppendStoredBlocks(data, last, out);
        return;
    }
    out.resize(start + produced);
}

void AppendStoredBlocks(std::string_view data, bool last, std::string& out) {
    do {
        const std::size_t length = std::min(data.size(), kStoredBlockMax);
        const bool final = last && length == data.size();
        // At a byte boundary, the three header bits (BFINAL, BTYPE 00) and the padding make one byte.
        const char header[kStoredHeader] = {static_cast<char>(final ? 1 : 0), static_cast<char>(length & 0xFF),
                                            static_cast<char>(length >> 8), static_cast<char>(~length & 0xFF),
                                            static_cast<char>((~length >> 8) & 0xFF)};
        out.append(header, kStoredHeader);
        out.append(data.substr(0, length));
        data.remove_prefix(length);
    } while (!data.empty());
}

std::uint64_t StoredBlocksSize(std::uint64_t size) {
    const std::uint64_t blocks = size == 0 ? 1 : (size + kStoredBlockMax - 1) / kStoredBlockMax;
    return size + blocks * kStoredHeader;
}

}  // namespace Zip
