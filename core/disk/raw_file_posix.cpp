// RawFile over POSIX file descriptors; block devices report their size through BLKGETSIZE64.
#include "core/disk/raw_file.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/common/strings.h"
#include "core/disk/disk_errors.h"

namespace Disk {

RawFile& RawFile::operator=(RawFile&& other) noexcept {
    if (this != &other) {
        Close();
        handle_ = other.handle_;
        other.handle_ = kInvalid;
    }
    return *this;
}

RawFile::~RawFile() { Close(); }

void RawFile::Close() noexcept {
    if (handle_ != kInvalid) ::close(static_cast<int>(handle_));
    handle_ = kInvalid;
}

Common::Error RawFile::Open(const std::filesystem::path& path, RawFile& file) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return Common::Error::Make(Codes::kOpenFailed, L"Cannot open " + Common::Utf8ToWide(path.string()) + L".",
                                   Common::Error::AddErrno(errno));
    file = RawFile();
    file.handle_ = fd;
    return {};
}

Common::Error RawFile::ReadAt(std::uint64_t offset, std::span<std::uint8_t> data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t got = ::pread(static_cast<int>(handle_), data.data() + done, data.size() - done,
                                    static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0)
            return Common::Error::Make(Codes::kReadFailed, L"Read error at byte " + std::to_wstring(offset + done) + L".",
                                       Common::Error::AddErrno(errno));
        if (got == 0)
            return Common::Error::Make(Codes::kReadFailed, L"End of file at byte " + std::to_wstring(offset + done) + L".");
        done += static_cast<std::size_t>(got);
    }
    return {};
}

Common::Error RawFile::Size(std::uint64_t& bytes) {
    struct stat status {};
    if (::fstat(static_cast<int>(handle_), &status) != 0)
        return Common::Error::Make(Codes::kReadFailed, L"Cannot query the size.", Common::Error::AddErrno(errno));
    if (S_ISBLK(status.st_mode)) {
        std::uint64_t size = 0;
        if (::ioctl(static_cast<int>(handle_), BLKGETSIZE64, &size) != 0)
            return Common::Error::Make(Codes::kReadFailed, L"Cannot query the device size.", Common::Error::AddErrno(errno));
        bytes = size;
        return {};
    }
    bytes = static_cast<std::uint64_t>(status.st_size);
    return {};
}

}  // namespace Disk
