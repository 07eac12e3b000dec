// Folder queries of the Windows shell and the executable's own path.
#include "core/common/folders.h"

#include "core/common/windows_api.h"

#include <shlobj.h>

namespace Common {

std::filesystem::path ExecutablePath() {
    static const std::filesystem::path path = [] {
        wchar_t buffer[261] = {};
        DWORD length = GetModuleFileNameW(nullptr, buffer, 261);
        return std::filesystem::path(std::wstring(buffer, length));
    }();
    return path;
}

namespace {

std::optional<std::filesystem::path> ShellFolder(int csidl) {
    wchar_t buffer[261] = {};
    if (FAILED(SHGetFolderPathW(nullptr, csidl, nullptr, 0, buffer))) return std::nullopt;
    return std::filesystem::path(buffer);
}

class WindowsFolderService final : public FolderService {
public:
    std::optional<std::filesystem::path> CommonAppData() override { return ShellFolder(CSIDL_COMMON_APPDATA); }
    std::optional<std::filesystem::path> UserAppData() override { return ShellFolder(CSIDL_APPDATA); }
    std::optional<std::wstring> UserName() override {
        wchar_t buffer[260] = {};
        DWORD size = 260;
        if (!GetUserNameW(buffer, &size)) return std::nullopt;
        return std::wstring(buffer);
    }
};

}  // namespace

std::unique_ptr<FolderService> MakeSystemFolderService() { return std::make_unique<WindowsFolderService>(); }

}  // namespace Common
