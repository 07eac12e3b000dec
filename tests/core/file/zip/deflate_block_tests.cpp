// Blocks compressed as whole streams and joined: the scan that finds each stream's final block, checked by
// zlib inflating the joined stream, and its refusal of streams that are cut short or damaged.
#include "core/file/zip/deflate_block.h"

#include <gtest/gtest.h>
#include <libdeflate.h>
#include <zlib.h>

#include <random>
#include <vector>

#include "core/file/zip/deflate_scan.h"

namespace {

// Log-like text with enough variety that deflate chooses dynamic blocks, and several of them.
std::string Text(std::size_t lines, unsigned start) {
    std::mt19937 random(start);
    static const char* const kWords[] = {"backup", "volume", "sector", "retry", "C:\\Images", "verified", "error"};
    std::string text;
    for (std::size_t i = 0; i < lines; ++i) {
        text += "2024-05-01 10:" + std::to_string(random() % 60) + " ";
        for (int w = 0; w < 6; ++w) text += std::string(kWords[random() % 7]) + ' ' + std::to_string(random() % 5000) + ' ';
        text += '\n';
    }
    return text;
}

std::string Noise(std::size_t size, unsigned start) {
    std::mt19937 random(start);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    return bytes;
}

// Raw inflate that must end exactly at the end of `stream`.
std::optional<std::string> Inflate(const std::string& stream) {
    z_stream z{};
    if (inflateInit2(&z, -MAX_WBITS) != Z_OK) return std::nullopt;
    std::string out, chunk(1 << 16, '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(stream.data()));
    z.avail_in = static_cast<uInt>(stream.size());
    int status = Z_OK;
    while (status == Z_OK) {
        z.next_out = reinterpret_cast<Bytef*>(chunk.data());
        z.avail_out = static_cast<uInt>(chunk.size());
        status = inflate(&z, Z_NO_FLUSH);
        out.append(chunk.data(), chunk.size() - z.avail_out);
    }
    const bool whole = status == Z_STREAM_END && z.avail_in == 0;
    inflateEnd(&z);
    return whole ? std::optional(out) : std::nullopt;
}

// Each case cuts its data into blocks of the given sizes (the last block takes the rest, maybe nothing).
TEST(BlockDeflater, JoinedBlocksInflateToTheInput) {
    const std::string text = Text(40000, 1);
    struct Case {
        const char* name;
        std::string data;
        std::size_t block;
        std::size_t most;  // joined bytes at most: more means the blocks were not joined deflated
    };
    const Case cases[] = {
        {"text in 1 MiB blocks", text, 1 << 20, text.size() / 4},
        {"text in 200-byte blocks", text.substr(0, 20000), 200, 20000},
        {"text ending on a block boundary", text.substr(0, 3 << 16), 1 << 16, (3 << 16) / 4},
        {"a long run", std::string(3 << 20, 'a'), 1 << 20, 20000},
        {"noise", Noise(300000, 2), 100000, Zip::StoredBlocksSize(300000) + 20},
        {"text and noise in one block", Text(3000, 3) + Noise(200000, 4) + Text(3000, 5), 1 << 20, 200000 + 200000},
    };
    for (const Case& c : cases) {
        Zip::BlockDeflater deflater(6);
        std::string joined;
        std::size_t at = 0;
        do {
            const std::size_t size = std::min(c.block, c.data.size() - at);
            deflater.Compress(std::string_view(c.data).substr(at, size), at + size == c.data.size() && size < c.block,
                              joined);
            at += size;
            if (at == c.data.size() && size == c.block) deflater.Compress({}, true, joined);
        } while (at < c.data.size());
        EXPECT_EQ(Inflate(joined), c.data) << c.name;
        EXPECT_LE(joined.size(), c.most) << c.name;
    }
}

TEST(ScanDeflate, RefusesStreamsCutShortOrDamaged) {
    const std::string text = Text(400, 6);
    std::vector<std::uint8_t> stream(text.size());
    libdeflate_compressor* compressor = libdeflate_alloc_compressor(6);
    stream.resize(libdeflate_deflate_compress(compressor, text.data(), text.size(), stream.data(), stream.size()));
    libdeflate_free_compressor(compressor);
    ASSERT_GT(stream.size(), 0u);
    const std::optional<Zip::DeflateEnd> end = Zip::ScanDeflate(stream);
    ASSERT_TRUE(end);
    EXPECT_EQ((end->endBit + 7) / 8, stream.size());
    for (std::size_t size = 0; size < stream.size(); ++size) {
        EXPECT_FALSE(Zip::ScanDeflate(std::span(stream).first(size))) << "cut to " << size << " bytes";
    }
    // Damage may still decode as some stream; the scan must stay inside the bytes either way.
    std::mt19937 random(7);
    for (int i = 0; i < 2000; ++i) {
        std::vector<std::uint8_t> damaged = stream;
        damaged[random() % damaged.size()] ^= static_cast<std::uint8_t>(1u << (random() % 8));
        if (auto found = Zip::ScanDeflate(damaged)) {
            EXPECT_LE(found->endBit, damaged.size() * 8);
        }
    }
}

}  // namespace
