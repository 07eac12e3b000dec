// The file and clock calls of the zip writer that differ between Windows and POSIX systems.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>

#include "core/common/error.h"

namespace Zip::Platform {

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// `mode` is an fopen mode ("rb", "wb"). Windows opens by the path's wide name, so any name works there too.
// On failure errno tells why.
FilePtr OpenFile(const std::filesystem::path& path, const char* mode);
// Creates `path` for writing in binary mode; fails (errno EEXIST) when anything, a link included, is there.
FilePtr CreateNewFile(const std::filesystem::path& path);
// 64-bit seek and truncate, as a 32-bit build would otherwise stop at 2 GiB; errno tells why on failure.
bool SeekTo(std::FILE* file, std::uint64_t offset);
bool Truncate(std::FILE* file, std::uint64_t size);
// Renames `from` over `to`, replacing a file already there; the error entry is the system's cause.
Common::Error RenameOver(const std::filesystem::path& from, const std::filesystem::path& to);
bool ToLocalTime(std::time_t time, std::tm& local);

}  // namespace Zip::Platform
