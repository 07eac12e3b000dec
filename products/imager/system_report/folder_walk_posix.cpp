// The folder walk on POSIX systems: directory descriptors, openat with O_NOFOLLOW, fstat on what was
// opened. Names below an open folder are resolved from its descriptor, so no path-length limit applies.
#include "products/imager/system_report/folder_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace SystemReport {
namespace {

// The modification time that marks a scrubbed settings copy as the tool's own (2000-01-01 00:00:02 UTC):
// no file of the product has it by chance, and file systems with 2-second stamps keep it.
constexpr time_t kReportCopyTime = 946684802;

constexpr int kOpenFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

Common::Error SystemFailure(int code, const wchar_t* message) {
    return Common::Error::Make(Common::Codes::kOpenFile, message, Common::Error::AddErrno(code));
}

struct DirCloser {
    void operator()(DIR* dir) const noexcept { closedir(dir); }
};

// A regular file or a folder, opened; anything else reported by its kind.
OpenedEntry Opened(int descriptor) {
    OpenedEntry entry;
    if (descriptor < 0) {
        const int code = errno;
        entry.kind = code == ELOOP ? EntryKind::Link
                     : code == ENOENT ? EntryKind::Missing
                     : code == ENAMETOOLONG ? EntryKind::TooLong
                     : code == ENXIO ? EntryKind::Other  // a socket, or a pipe no process writes to
                                         : EntryKind::Failed;
        entry.error = SystemFailure(code, L"Error occurred while opening the file.");
        return entry;
    }
    WalkHandle handle(descriptor);
    struct stat status;
    if (fstat(handle.Get(), &status) != 0) {
        entry.error = SystemFailure(errno, L"Error occurred while opening the file.");
        return entry;
    }
    if (S_ISREG(status.st_mode)) {
        // Reads block again: a file that another process has locked is waited for as any reader would.
        fcntl(handle.Get(), F_SETFL, fcntl(handle.Get(), F_GETFL) & ~O_NONBLOCK);
        entry.kind = EntryKind::File;
        entry.file = std::make_unique<OpenFile>(std::move(handle), static_cast<std::uint64_t>(status.st_size), status.st_mtime);
    } else if (S_ISDIR(status.st_mode)) {
        entry.kind = EntryKind::Folder;
        entry.folder = std::make_unique<OpenFolder>(std::move(handle), status.st_mtime);
    } else {
        entry.kind = EntryKind::Other;
    }
    return entry;
}

bool SameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

}  // namespace

OpenFile::OpenFile(WalkHandle handle, std::uint64_t size, std::time_t modified)
    : handle_(std::move(handle)), size_(size), modified_(modified) {}

std::optional<FileIdentity> OpenFile::Identity() const {
    struct stat info {};
    if (::fstat(handle_.Get(), &info) != 0) return std::nullopt;
    return FileIdentity{static_cast<std::uint64_t>(info.st_dev), static_cast<std::uint64_t>(info.st_ino)};
}

std::optional<FileIdentity> IdentityOfPath(const std::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    return FileIdentity{static_cast<std::uint64_t>(info.st_dev), static_cast<std::uint64_t>(info.st_ino)};
}

Common::Error OpenFile::ReadSome(std::span<char> buffer, std::size_t& got) {
    for (;;) {
        const ssize_t count = ::read(handle_.Get(), buffer.data(), buffer.size());
        if (count >= 0) {
            got = static_cast<std::size_t>(count);
            return {};
        }
        if (errno != EINTR) return SystemFailure(errno, L"Error occurred while reading the file.");
    }
}

Common::Error OpenFile::SeekToStart() {
    if (lseek(handle_.Get(), 0, SEEK_SET) == 0) return {};
    return SystemFailure(errno, L"Error occurred while reading the file.");
}

Common::Error OpenFile::WriteAll(std::string_view data) {
    const std::uint64_t size = data.size();
    while (!data.empty()) {
        const ssize_t count = ::write(handle_.Get(), data.data(), data.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return SystemFailure(count < 0 ? errno : ENOSPC, L"Error occurred while writing the file.");
        data.remove_prefix(static_cast<std::size_t>(count));
    }
    size_ = size;
    return Rewind();
}

OpenFolder::OpenFolder(WalkHandle handle, std::time_t modified)
    : handle_(std::move(handle)), modified_(modified) {}

OpenedEntry OpenFolder::OpenRoot(const std::filesystem::path& path) {
    // A trailing separator would make open() follow a link at the last name.
    const std::filesystem::path entry = path.has_filename() ? path : path.parent_path();
    OpenedEntry opened = Opened(::open(entry.c_str(), kOpenFlags | O_DIRECTORY));
    if (opened.kind == EntryKind::Failed && opened.error.Cause().Code() == ENOTDIR) {
        // O_DIRECTORY fails on a link before O_NOFOLLOW does on some systems.
        struct stat status;
        if (lstat(entry.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) opened.kind = EntryKind::Link;
    }
    return opened;
}

Common::Error OpenFolder::List(std::vector<NativeName>& names) {
    // The listing gets a descriptor of its own, as closedir closes the one it was given.
    const int listed = openat(handle_.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (listed < 0) return SystemFailure(errno, L"Error occurred while opening the file.");
    std::unique_ptr<DIR, DirCloser> dir(fdopendir(listed));
    if (!dir) {
        const int code = errno;
        ::close(listed);
        return SystemFailure(code, L"Error occurred while opening the file.");
    }
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(dir.get());
        if (!entry) break;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    if (errno != 0) return SystemFailure(errno, L"Error occurred while reading the file.");
    return {};
}

OpenedEntry OpenFolder::Open(const NativeName& name) {
    // Opening a device can act on it (a tape rewinds): only what looks like a file or folder is opened, and
    // what was opened is what counts. Only root can put a device in the way after this look.
    struct stat status;
    if (fstatat(handle_.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(status.st_mode) &&
        !S_ISDIR(status.st_mode)) {
        OpenedEntry entry;
        entry.kind = S_ISLNK(status.st_mode) ? EntryKind::Link : EntryKind::Other;
        return entry;
    }
    return Opened(openat(handle_.Get(), name.c_str(), kOpenFlags));
}

Common::Error OpenFolder::CreateReportCopy(const NativeName& name, std::unique_ptr<OpenFile>& copy) {
    WalkHandle file(openat(handle_.Get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return SystemFailure(errno, L"Error occurred while creating the file.");
    // Locked before it is marked: a marked copy that is not locked is one whose run has ended.
    const timespec times[2] = {{kReportCopyTime, 0}, {kReportCopyTime, 0}};
    if (flock(file.Get(), LOCK_EX) != 0 || futimens(file.Get(), times) != 0) {
        const int code = errno;
        unlinkat(handle_.Get(), name.c_str(), 0);
        return SystemFailure(code, L"Error occurred while creating the file.");
    }
    copy = std::make_unique<OpenFile>(std::move(file), 0, kReportCopyTime);
    return {};
}

void OpenFolder::ReleaseReportCopyName(const NativeName& name, const OpenFile& copy) {
    // Only the copy itself: whatever another process may have put under its name stays.
    struct stat opened, named;
    if (fstat(copy.handle_.Get(), &opened) == 0 && fstatat(handle_.Get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        SameFile(opened, named)) {
        unlinkat(handle_.Get(), name.c_str(), 0);
    }
}

ReportCopyState OpenFolder::CheckReportCopy(const NativeName& name) {
    WalkHandle file(openat(handle_.Get(), name.c_str(), kOpenFlags));
    struct stat opened;
    if (!file || fstat(file.Get(), &opened) != 0 || !S_ISREG(opened.st_mode) || opened.st_mtime != kReportCopyTime) {
        return ReportCopyState::NotOurs;
    }
    if (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) return ReportCopyState::InUse;
    struct stat named;
    if (fstatat(handle_.Get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 || !SameFile(opened, named)) {
        return ReportCopyState::InUse;
    }
    unlinkat(handle_.Get(), name.c_str(), 0);
    return ReportCopyState::Removed;
}

}  // namespace SystemReport
