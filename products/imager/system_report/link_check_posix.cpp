// Links on POSIX systems: lstat and O_NOFOLLOW, which do not follow the link they meet.
#include "products/imager/system_report/link_check.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/common/file_descriptor.h"

namespace SystemReport {

bool IsLink(const std::filesystem::path& path) {
    const std::filesystem::path entry = path.has_filename() ? path : path.parent_path();
    struct stat status;
    return lstat(entry.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool WriteNewFile(const std::filesystem::path& path, std::string_view data) {
    Common::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return false;
    bool written = true;
    while (written && !data.empty()) {
        const ssize_t count = ::write(file.Get(), data.data(), data.size());
        if (count < 0 && errno == EINTR) continue;
        written = count > 0;
        if (written) data.remove_prefix(static_cast<std::size_t>(count));
    }
    // A failing close may be the first report of a failed write (full disk, network file systems).
    written = file.Close() && written;
    if (!written) ::unlink(path.c_str());
    return written;
}

}  // namespace SystemReport
