// The zip writer's file and clock calls on Windows: wide names, 64-bit offsets, replacing renames.
#include "core/file/zip/zip_platform.h"

#include "core/common/windows_api.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <string>

namespace Zip::Platform {

FilePtr OpenFile(const std::filesystem::path& path, const char* mode) {
    std::wstring wideMode(mode, mode + std::char_traits<char>::length(mode));
    return FilePtr(_wfopen(path.c_str(), wideMode.c_str()));
}

// The C library of older systems knows no "x" mode: the exclusive create is asked of the system.
FilePtr CreateNewFile(const std::filesystem::path& path) {
    int fd = _wopen(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
    if (fd < 0) return nullptr;
    FilePtr file(_fdopen(fd, "wb"));
    if (!file) _close(fd);
    return file;
}

bool SeekTo(std::FILE* file, std::uint64_t offset) {
    return _fseeki64(file, static_cast<long long>(offset), SEEK_SET) == 0;
}

bool Truncate(std::FILE* file, std::uint64_t size) {
    return std::fflush(file) == 0 && _chsize_s(_fileno(file), static_cast<long long>(size)) == 0;
}

// MoveFileEx rather than the C library's rename, which refuses to replace an existing file on Windows.
Common::Error RenameOver(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return {};
    return Common::Error::AddWindowsError(GetLastError());
}

bool ToLocalTime(std::time_t time, std::tm& local) { return localtime_s(&local, &time) == 0; }

}  // namespace Zip::Platform
