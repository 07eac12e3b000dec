// Folder queries on POSIX systems: environment, password database and /proc/self/exe.
#include "core/common/folders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

#include "core/common/strings.h"

namespace Common {

std::filesystem::path ExecutablePath() {
    static const std::filesystem::path path = [] {
        std::error_code ec;
        auto target = std::filesystem::read_symlink("/proc/self/exe", ec);
        return ec ? std::filesystem::path() : target;
    }();
    return path;
}

namespace {

std::optional<std::string> Environment(const char* name) {
    const char* value = std::getenv(name);
    if (!value || !*value) return std::nullopt;
    return std::string(value);
}

class PosixFolderService final : public FolderService {
public:
    std::optional<std::filesystem::path> CommonAppData() override {
        return std::filesystem::path(Environment("SYSTEM_REPORT_COMMON_APPDATA").value_or("/var/lib"));
    }

    std::optional<std::filesystem::path> UserAppData() override {
        if (auto xdg = Environment("XDG_DATA_HOME")) return std::filesystem::path(*xdg);
        auto home = Environment("HOME");
        if (!home) {
            const passwd* entry = getpwuid(geteuid());
            if (!entry || !entry->pw_dir) return std::nullopt;
            home = entry->pw_dir;
        }
        return std::filesystem::path(*home) / ".local" / "share";
    }

    std::optional<std::wstring> UserName() override {
        const passwd* entry = getpwuid(geteuid());
        if (!entry || !entry->pw_name) return std::nullopt;
        return Utf8ToWide(entry->pw_name);
    }
};

}  // namespace

std::unique_ptr<FolderService> MakeSystemFolderService() { return std::make_unique<PosixFolderService>(); }

}  // namespace Common
