// Test-only entry to the zip writer: lower ZIP64 limits make small archives take the ZIP64 paths, and
// small blocks make small entries take the paths of large ones.
#pragma once

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <thread>

#include "core/common/error.h"
#include "core/file/zip/zip_format.h"
#include "core/file/zip/zip_writer.h"

namespace Zip {

// How the writer divides its work. An entry is compressed in blocks of `blockSize` bytes (each primed with
// the end of the one before, so 1 MiB blocks lose almost nothing against one stream); the blocks read and not
// yet written stay within `budget`, plus the block each worker holds.
struct Tuning {
    std::size_t blockSize = 1u << 20;
    std::size_t budget = 64u << 20;
    unsigned workers = std::max(2u, std::thread::hardware_concurrency());
};

struct TestAccess {
    // ZipWriter::Create with `limits` in place of the APPNOTE ones.
    static Common::Error Create(const std::filesystem::path& target, const Format::Limits& limits,
                                std::unique_ptr<ZipWriter>& writer);
    static Common::Error Create(const std::filesystem::path& target, const Format::Limits& limits,
                                const Tuning& tuning, std::unique_ptr<ZipWriter>& writer);
};

}  // namespace Zip
