// The zip writer's file and clock calls on POSIX systems.
#include "core/file/zip/zip_platform.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace Zip::Platform {

FilePtr OpenFile(const std::filesystem::path& path, const char* mode) {
    return FilePtr(std::fopen(path.c_str(), mode));
}

FilePtr CreateNewFile(const std::filesystem::path& path) { return FilePtr(std::fopen(path.c_str(), "wbx")); }

bool SeekTo(std::FILE* file, std::uint64_t offset) {
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
}

bool Truncate(std::FILE* file, std::uint64_t size) {
    return std::fflush(file) == 0 && ftruncate(fileno(file), static_cast<off_t>(size)) == 0;
}

Common::Error RenameOver(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (std::rename(from.c_str(), to.c_str()) == 0) return {};
    return Common::Error::AddErrno(errno);
}

bool ToLocalTime(std::time_t time, std::tm& local) { return localtime_r(&time, &local) != nullptr; }

}  // namespace Zip::Platform
