// Block compression over libdeflate, which compresses whole buffers into whole streams: each block is a
// stream of its own, so it carries no history from the block before (1 MiB blocks of log text come out about
// 1% larger than one stream, as large as zlib's blocks primed with the block before). To join the streams,
// the final block of each one but the last is found (ScanDeflate) and its BFINAL bit cleared, and an empty
// stored block brings the stream to a byte boundary.
#include "core/file/zip/deflate_block.h"

#include <libdeflate.h>

#include <algorithm>
#include <new>
#include <span>

#include "core/file/zip/deflate_scan.h"

namespace Zip {
namespace {

constexpr std::size_t kStoredBlockMax = 0xFFFF;
constexpr std::size_t kStoredHeader = 5;  // the header byte, LEN and NLEN
// The three header bits of an empty stored block fit where the stream's last byte leaves room, or take a
// byte of their own; LEN and NLEN follow.
constexpr std::size_t kSyncMarkerMax = 1 + 4;

}  // namespace

BlockDeflater::BlockDeflater(int level) : compressor_(libdeflate_alloc_compressor(level)) {
    if (compressor_ == nullptr) throw std::bad_alloc();
}

BlockDeflater::~BlockDeflater() { libdeflate_free_compressor(compressor_); }

void BlockDeflater::Compress(std::string_view data, bool last, std::string& out) {
    const std::size_t start = out.size();
    const std::uint64_t storedSize = StoredBlocksSize(data.size());
    const std::size_t bound = libdeflate_deflate_compress_bound(compressor_, data.size());
    out.resize(start + bound + kSyncMarkerMax);
    std::size_t produced = data.empty() ? 0 : libdeflate_deflate_compress(compressor_, data.data(), data.size(),
                                                                           out.data() + start, bound);
    if (produced == 0 || produced + (last ? 0 : kSyncMarkerMax) >= storedSize) {
        out.resize(start);
        AppendStoredBlocks(data, last, out);
        return;
    }
    if (last) {
        out.resize(start + produced);
        return;
    }
    auto* stream = reinterpret_cast<std::uint8_t*>(out.data() + start);
    const std::optional<DeflateEnd> end = ScanDeflate(std::span<const std::uint8_t>(stream, produced));
    if (!end || (end->endBit + 7) / 8 != produced) {
        out.resize(start);
        AppendStoredBlocks(data, last, out);
        return;
    }
    stream[end->finalHeaderBit / 8] &= static_cast<std::uint8_t>(~(1u << (end->finalHeaderBit % 8)));
    // The empty stored block: its BFINAL and BTYPE bits are zeros, and so is the padding to the byte, so
    // only its length fields are written once the bits after the final block are cleared.
    if (end->endBit % 8 != 0) stream[end->endBit / 8] &= static_cast<std::uint8_t>((1u << (end->endBit % 8)) - 1);
    const std::size_t aligned = static_cast<std::size_t>((end->endBit + 3 + 7) / 8);
    std::fill(stream + produced, stream + aligned, std::uint8_t{0});
    const char lengths[4] = {0, 0, static_cast<char>(0xFF), static_cast<char>(0xFF)};
    out.resize(start + aligned);
    out.append(lengths, sizeof lengths);
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

std::uint32_t Crc32(std::uint32_t crc, std::string_view data) {
    return libdeflate_crc32(crc, data.data(), data.size());
}

}  // namespace Zip
