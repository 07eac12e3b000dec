// Links on POSIX systems: lstat and O_NOFOLLOW, which do not follow the link they meet.
#include "products/imager/system_report/link_check.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace SystemReport {
namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    int get() const { return fd_; }
    bool Close() {
        const int fd = fd_;
        fd_ = -1;
        return ::close(fd) == 0;
    }

private:
    int fd_;
};

}  // namespace

bool IsLink(const std::filesystem::path& path) {
    const std::filesystem::path entry = path.has_filename() ? path : path.parent_path();
    struct stat status;
    return lstat(entry.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool WriteNewFile(const std::filesystem::path& path, std::string_view data) {
    Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (file.get() < 0) return false;
    bool written = true;
    while (written && !data.empty()) {
        const ssize_t count = ::write(file.get(), data.data(), data.size());
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
