// Links on Windows: the reparse tag of the entry itself, as the directory listing reports it, and files
// created new without following a reparse point.
#include "products/imager/system_report/link_check.h"

#include <algorithm>
#include <memory>

#include "core/common/windows_api.h"

namespace SystemReport {
namespace {

struct HandleCloser {
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
using ScopedHandle = std::unique_ptr<void, HandleCloser>;

}  // namespace

bool IsLink(const std::filesystem::path& path) {
    const std::filesystem::path entry = path.has_filename() ? path : path.parent_path();
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(entry.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return false;
    FindClose(find);
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
    // dwReserved0 holds the reparse tag. Windows never gives a reparse point the tag 0, but Wine reports
    // the host's symbolic links that way.
    return data.dwReserved0 == 0 || IsReparseTagNameSurrogate(data.dwReserved0);
}

bool WriteNewFile(const std::filesystem::path& path, std::string_view data) {
    // CREATE_NEW fails on any existing name; with FILE_FLAG_OPEN_REPARSE_POINT a link under that name is
    // itself the existing name, never a way to its target.
    HANDLE raw = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                             FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (raw == INVALID_HANDLE_VALUE) return false;
    ScopedHandle file(raw);
    bool written = true;
    while (written && !data.empty()) {
        const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(data.size(), 1u << 30));
        DWORD count = 0;
        written = WriteFile(file.get(), data.data(), chunk, &count, nullptr) && count > 0;
        data.remove_prefix(count);
    }
    written = CloseHandle(file.release()) && written;
    if (!written) DeleteFileW(path.c_str());
    return written;
}

}  // namespace SystemReport
