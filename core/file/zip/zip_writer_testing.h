// Test-only entry to the zip writer: lower ZIP64 limits make small archives take the ZIP64 paths.
#pragma once

#include <filesystem>
#include <memory>

#include "core/common/error.h"
#include "core/file/zip/zip_format.h"
#include "core/file/zip/zip_writer.h"

namespace Zip {

struct TestAccess {
    // ZipWriter::Create with `limits` in place of the APPNOTE ones.
    static Common::Error Create(const std::filesystem::path& target, const Format::Limits& limits,
                                std::unique_ptr<ZipWriter>& writer);
};

}  // namespace Zip
