// The folder walk on Windows: every entry is opened with FILE_FLAG_OPEN_REPARSE_POINT, so a link or
// junction is opened itself and never its target, and the open handle's attributes decide what it is.
// Folders are listed through their handle and held open without FILE_SHARE_DELETE, so nothing can rename
// or replace them while they are walked; a child is opened below the folder's final path and must have
// that path as its own final path.
#include "products/imager/system_report/folder_walk.h"

#include <algorithm>
#include <cwctype>
#include <vector>

#include "products/imager/system_report/link_check.h"

namespace SystemReport {
namespace {

constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr ULONGLONG kTicksPerSecond = 10000000;
constexpr ULONGLONG kEpochTicks = 11644473600ULL * kTicksPerSecond;  // 1601-01-01 to 1970-01-01
// The modification time that marks a scrubbed settings copy as the tool's own: 2000-01-01 00:00:02 UTC.
constexpr ULONGLONG kReportCopyTicks = 946684802ULL * kTicksPerSecond + kEpochTicks;

Common::Error SystemFailure(DWORD code, const wchar_t* message) {
    return Common::Error::Make(Common::Codes::kOpenFile, message, Common::Error::AddWindowsError(code));
}

std::time_t ToTime(LARGE_INTEGER ticks) {
    return static_cast<std::time_t>((static_cast<LONGLONG>(ticks.QuadPart) - static_cast<LONGLONG>(kEpochTicks)) /
                                    static_cast<LONGLONG>(kTicksPerSecond));
}

// "\\?\" lifts the 260-character limit on paths.
std::wstring LongPath(const std::filesystem::path& path) {
    std::wstring text = std::filesystem::absolute(path).make_preferred().native();
    if (text.starts_with(L"\\\\?\\")) return text;
    if (text.starts_with(L"\\\\")) return L"\\\\?\\UNC\\" + text.substr(2);
    return L"\\\\?\\" + text;
}

std::wstring FinalPath(HANDLE handle) {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), FILE_NAME_NORMALIZED);
        if (length == 0) return {};
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(length + 1);
    }
}

bool SamePath(const std::wstring& a, const std::wstring& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) { return std::towupper(x) == std::towupper(y); });
}

OpenedEntry Opened(const std::wstring& path, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
    OpenedEntry entry;
    WalkHandle handle(CreateFileW(path.c_str(), access, share, nullptr, disposition,
                                  flags | FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!handle) {
        const DWORD code = GetLastError();
        entry.kind = code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND ? EntryKind::Missing
                     : code == ERROR_FILENAME_EXCED_RANGE                         ? EntryKind::TooLong
                                                                                  : EntryKind::Failed;
        entry.error = SystemFailure(code, L"Error occurred while opening the file.");
        return entry;
    }
    FILE_ATTRIBUTE_TAG_INFO tag{};
    FILE_STANDARD_INFO standard{};
    FILE_BASIC_INFO basic{};
    if (!GetFileInformationByHandleEx(handle.Get(), FileAttributeTagInfo, &tag, sizeof tag) ||
        !GetFileInformationByHandleEx(handle.Get(), FileStandardInfo, &standard, sizeof standard) ||
        !GetFileInformationByHandleEx(handle.Get(), FileBasicInfo, &basic, sizeof basic)) {
        entry.error = SystemFailure(GetLastError(), L"Error occurred while opening the file.");
        return entry;
    }
    // Windows never gives a reparse point the tag 0, but Wine reports the host's symbolic links that way.
    // Other reparse points (deduplicated or cloud files) are ordinary files.
    if ((tag.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
        (tag.ReparseTag == 0 || IsReparseTagNameSurrogate(tag.ReparseTag))) {
        entry.kind = EntryKind::Link;
    } else if (standard.Directory) {
        entry.kind = EntryKind::Folder;
        entry.folder = std::make_unique<OpenFolder>(std::move(handle), ToTime(basic.LastWriteTime));
    } else if (GetFileType(handle.Get()) == FILE_TYPE_DISK) {
        entry.kind = EntryKind::File;
        entry.file = std::make_unique<OpenFile>(std::move(handle), static_cast<std::uint64_t>(standard.EndOfFile.QuadPart),
                                                ToTime(basic.LastWriteTime));
    } else {
        entry.kind = EntryKind::Other;
    }
    return entry;
}

}  // namespace

OpenFile::OpenFile(WalkHandle handle, std::uint64_t size, std::time_t modified)
    : handle_(std::move(handle)), size_(size), modified_(modified) {}

namespace {

std::optional<FileIdentity> IdentityOfHandle(HANDLE handle) {
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(handle, &info)) return std::nullopt;
    return FileIdentity{info.dwVolumeSerialNumber,
                        (std::uint64_t{info.nFileIndexHigh} << 32) | info.nFileIndexLow};
}

}  // namespace

std::optional<FileIdentity> OpenFile::Identity() const { return IdentityOfHandle(handle_.Get()); }

std::optional<FileIdentity> IdentityOfPath(const std::filesystem::path& path) {
    // No access asked: the identity is readable even of a file that another process holds.
    Common::KernelHandle file(CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file) return std::nullopt;
    return IdentityOfHandle(file.Get());
}

Common::Error OpenFile::ReadSome(std::span<char> buffer, std::size_t& got) {
    DWORD count = 0;
    const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(buffer.size(), 1u << 30));
    if (!ReadFile(handle_.Get(), buffer.data(), chunk, &count, nullptr)) {
        return SystemFailure(GetLastError(), L"Error occurred while reading the file.");
    }
    got = count;
    return {};
}

Common::Error OpenFile::SeekToStart() {
    LARGE_INTEGER start{};
    if (SetFilePointerEx(handle_.Get(), start, nullptr, FILE_BEGIN)) return {};
    return SystemFailure(GetLastError(), L"Error occurred while reading the file.");
}

Common::Error OpenFile::WriteAll(std::string_view data) {
    const std::uint64_t size = data.size();
    while (!data.empty()) {
        const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(data.size(), 1u << 30));
        DWORD count = 0;
        if (!WriteFile(handle_.Get(), data.data(), chunk, &count, nullptr) || count == 0) {
            return SystemFailure(GetLastError(), L"Error occurred while writing the file.");
        }
        data.remove_prefix(count);
    }
    size_ = size;
    return Rewind();
}

OpenFolder::OpenFolder(WalkHandle handle, std::time_t modified)
    : handle_(std::move(handle)), modified_(modified) {}

OpenedEntry OpenFolder::OpenRoot(const std::filesystem::path& path) {
    const std::filesystem::path entry = path.has_filename() ? path : path.parent_path();
    OpenedEntry opened = Opened(LongPath(entry), GENERIC_READ, kShare, OPEN_EXISTING, 0);
    if (opened.kind == EntryKind::File) opened = OpenedEntry{EntryKind::Missing, nullptr, nullptr, {}};
    // Wine opens a host's link to a folder as the folder itself, with no reparse point on the handle; its
    // directory entry still shows one. Asked after the open, a swap in between can only make a real folder
    // look like a link, never the other way round.
    if (opened.kind == EntryKind::Folder && IsLink(entry)) opened = OpenedEntry{EntryKind::Link, nullptr, nullptr, {}};
    return opened;
}

Common::Error OpenFolder::List(std::vector<NativeName>& names) {
    std::vector<std::uint64_t> buffer(64 * 1024 / sizeof(std::uint64_t));  // 8-byte aligned, as the records are
    for (FILE_INFO_BY_HANDLE_CLASS kind = FileIdBothDirectoryRestartInfo;; kind = FileIdBothDirectoryInfo) {
        if (!GetFileInformationByHandleEx(handle_.Get(), kind, buffer.data(), static_cast<DWORD>(buffer.size() * sizeof(buffer[0])))) {
            const DWORD code = GetLastError();
            if (code == ERROR_NO_MORE_FILES) return {};
            return SystemFailure(code, L"Error occurred while reading the file.");
        }
        const auto* record = reinterpret_cast<const unsigned char*>(buffer.data());
        for (;;) {
            const auto* info = reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(record);
            const std::wstring name(info->FileName, info->FileNameLength / sizeof(wchar_t));
            if (name != L"." && name != L"..") names.push_back(name);
            if (info->NextEntryOffset == 0) break;
            record += info->NextEntryOffset;
        }
    }
}

OpenedEntry OpenFolder::Open(const NativeName& name) {
    const std::wstring folder = FinalPath(handle_.Get());
    if (folder.empty()) return OpenedEntry{EntryKind::Failed, nullptr, nullptr, SystemFailure(GetLastError(), L"Error occurred while opening the file.")};
    const std::wstring path = folder + L"\\" + name;
    OpenedEntry opened = Opened(path, GENERIC_READ, kShare, OPEN_EXISTING, 0);
    const HANDLE handle = opened.file ? opened.file->handle_.Get() : opened.folder ? opened.folder->handle_.Get() : nullptr;
    // Anything opened elsewhere than below this very folder came through a link: it is treated as one.
    if (handle && !SamePath(FinalPath(handle), path)) return OpenedEntry{EntryKind::Link, nullptr, nullptr, {}};
    return opened;
}

Common::Error OpenFolder::CreateReportCopy(const NativeName& name, std::unique_ptr<OpenFile>& copy) {
    const std::wstring folder = FinalPath(handle_.Get());
    // Shared with no one and deleted when its last handle closes, also when the process is killed.
    WalkHandle file(CreateFileW((folder + L"\\" + name).c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                                FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (folder.empty() || !file) return SystemFailure(GetLastError(), L"Error occurred while creating the file.");
    FILETIME mark{static_cast<DWORD>(kReportCopyTicks & 0xFFFFFFFF), static_cast<DWORD>(kReportCopyTicks >> 32)};
    if (!SetFileTime(file.Get(), nullptr, nullptr, &mark)) return SystemFailure(GetLastError(), L"Error occurred while creating the file.");
    copy = std::make_unique<OpenFile>(std::move(file), 0, static_cast<std::time_t>(946684802));
    return {};
}

void OpenFolder::ReleaseReportCopyName(const NativeName&, const OpenFile&) {}

ReportCopyState OpenFolder::CheckReportCopy(const NativeName& name) {
    const std::wstring folder = FinalPath(handle_.Get());
    if (folder.empty()) return ReportCopyState::NotOurs;
    OpenedEntry opened = Opened(folder + L"\\" + name, GENERIC_READ | DELETE, 0, OPEN_EXISTING, 0);
    if (opened.kind == EntryKind::Failed && opened.error.Cause().Code() == ERROR_SHARING_VIOLATION) {
        // Held by another process: a run that is going on, or a reader of the product's own file.
        return ReportCopyState::InUse;
    }
    FILE_BASIC_INFO basic{};
    if (!opened.file || !GetFileInformationByHandleEx(opened.file->handle_.Get(), FileBasicInfo, &basic, sizeof basic) ||
        static_cast<ULONGLONG>(basic.LastWriteTime.QuadPart) != kReportCopyTicks) {
        return ReportCopyState::NotOurs;
    }
    FILE_DISPOSITION_INFO remove{TRUE};
    if (!SetFileInformationByHandle(opened.file->handle_.Get(), FileDispositionInfo, &remove, sizeof remove)) {
        return ReportCopyState::InUse;
    }
    return ReportCopyState::Removed;
}

}  // namespace SystemReport
