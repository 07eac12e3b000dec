// System Information's needs on Windows: version query, service control of "helpsvc", program folders.
#include "core/common/windows_api.h"

#include <shlobj.h>

#include "core/common/log.h"
#include "core/common/windows_handles.h"
#include "products/imager/system_report/msinfo_host.h"

namespace SystemReport {
namespace {

constexpr wchar_t kHelpService[] = L"helpsvc";

using Common::ServiceHandle;

// Runs `action` on the help service opened with `access`; false when the service cannot be opened.
template <typename Action>
bool WithHelpService(DWORD access, Action action) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return false;
    ServiceHandle service(OpenServiceW(manager.Get(), kHelpService, access));
    if (!service) return false;
    return action(service.Get());
}

class WindowsMsInfoHost final : public MsInfoHost {
public:
    std::optional<unsigned long> WindowsMajorVersion() override {
        OSVERSIONINFOA version{};
        version.dwOSVersionInfoSize = sizeof version;
        if (!GetVersionExA(&version)) return std::nullopt;
        return version.dwMajorVersion;
    }

    bool HelpServiceRunning() override {
        return WithHelpService(SERVICE_QUERY_STATUS, [](SC_HANDLE service) {
            SERVICE_STATUS status{};
            return QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_RUNNING;
        });
    }

    bool StartHelpService() override {
        bool started = WithHelpService(SERVICE_START, [](SC_HANDLE service) {
            return StartServiceW(service, 0, nullptr) != FALSE;
        });
        if (!started) Common::Log::Info("The service 'helpsvc', which System Information needs here, cannot be started.");
        return started;
    }

    void StopHelpService() override {
        WithHelpService(SERVICE_QUERY_STATUS | SERVICE_STOP, [](SC_HANDLE service) {
            SERVICE_STATUS status{};
            if (!QueryServiceStatus(service, &status) || status.dwCurrentState == SERVICE_STOPPED) return false;
            return ControlService(service, SERVICE_CONTROL_STOP, &status) != FALSE;
        });
    }

    std::wstring ProgramW6432Folder() override {
        wchar_t buffer[MAX_PATH];
        DWORD length = ExpandEnvironmentStringsW(L"%ProgramW6432%", buffer, MAX_PATH);
        // An unset variable stays as it is written.
        if (length == 0 || length > MAX_PATH || buffer[0] == L'%') return {};
        return buffer;
    }

    std::wstring ProgramFilesFolder() override {
        wchar_t buffer[MAX_PATH];
        if (FAILED(SHGetFolderPathW(nullptr, CSIDL_PROGRAM_FILES, nullptr, 0, buffer))) return {};
        return buffer;
    }
};

}  // namespace

std::unique_ptr<MsInfoHost> MakeMsInfoHost() { return std::make_unique<WindowsMsInfoHost>(); }

}  // namespace SystemReport
