// Links on Windows: the reparse tag of the entry itself, as the directory listing reports it.
#include "products/imager/system_report/link_check.h"

#include "core/common/windows_api.h"

namespace SystemReport {

bool IsLink(const std::filesystem::path& path) {
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(path.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return false;
    FindClose(find);
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
    // dwReserved0 holds the reparse tag. Windows never gives a reparse point the tag 0, but Wine reports
    // the host's symbolic links that way.
    return data.dwReserved0 == 0 || IsReparseTagNameSurrogate(data.dwReserved0);
}

}  // namespace SystemReport
