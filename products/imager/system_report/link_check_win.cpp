// Links on Windows: the reparse tag of the entry itself, as the directory listing reports it, and files
// created new without following a reparse point.
#include "products/imager/system_report/link_check.h"

#include <algorithm>

#include "core/common/windows_handles.h"

namespace SystemReport {

bool IsLink(const std::filesystem::path& path) {
    const std::filesystem::path entry = path.has_filename() ? path : path.parent_path();
    WIN32_FIND_DATAW data;
    if (!Common::FindFileHandle(FindFirstFileW(entry.c_str(), &data))) return false;
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
    // dwReserved0 holds the reparse tag. Windows never gives a reparse point the tag 0, but Wine reports
    // the host's symbolic links that way.
    return data.dwReserved0 == 0 || IsReparseTagNameSurrogate(data.dwReserved0);
}

bool WriteNewFile(const std::filesystem::path& path, std::string_view data) {
    // CREATE_NEW fails on any existing name; with FILE_FLAG_OPEN_REPARSE_POINT a link under that name is
    // itself the existing name, never a way to its target.
    Common::KernelHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                          FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!file) return false;
    bool written = true;
    while (written && !data.empty()) {
        const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(data.size(), 1u << 30));
        DWORD count = 0;
        written = WriteFile(file.Get(), data.data(), chunk, &count, nullptr) && count > 0;
        data.remove_prefix(count);
    }
    written = file.Close() && written;
    if (!written) DeleteFileW(path.c_str());
    return written;
}

}  // namespace SystemReport
