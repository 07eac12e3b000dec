// Where things are on this machine: the executable, the machine-wide and per-user application-data
// folders, the user's name, and the product's data and log folders below them.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace Common {

// Full path of the running executable, obtained once and cached for the process.
std::filesystem::path ExecutablePath();

// A seam: report items ask an instance of this, so tests can point them at folders of their own.
class FolderService {
public:
    virtual ~FolderService() = default;
    // CSIDL_COMMON_APPDATA on Windows; /var/lib elsewhere, unless SYSTEM_REPORT_COMMON_APPDATA names another
    // folder (rescue media may mount the product's data elsewhere).
    virtual std::optional<std::filesystem::path> CommonAppData() = 0;
    // CSIDL_APPDATA on Windows; ${XDG_DATA_HOME:-~/.local/share} elsewhere.
    virtual std::optional<std::filesystem::path> UserAppData() = 0;
    // The account name running the report (GetUserNameW, or the password database).
    virtual std::optional<std::wstring> UserName() = 0;
};

std::unique_ptr<FolderService> MakeSystemFolderService();

// <common app data>/Brendix/Cobaltine Home: the product's data folder, holding Logs/<channel> folders.
std::optional<std::filesystem::path> ProductDataFolder(FolderService& folders);

}  // namespace Common
