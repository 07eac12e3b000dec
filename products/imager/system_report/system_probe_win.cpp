// The system probe on Windows: the WOW64 query and the pre-installation key.
#include "core/common/windows_api.h"
#include "products/imager/system_report/system_probe.h"

namespace SystemReport {
namespace {

class WindowsSystemProbe final : public SystemProbe {
public:
    bool IsWow64Process() override {
        // Looked up at run time: systems before Windows XP SP2 lack it, and they are all 32-bit.
        HMODULE kernel = GetModuleHandleW(L"kernel32");
        if (!kernel) return false;
        auto query = reinterpret_cast<BOOL(WINAPI*)(HANDLE, PBOOL)>(
            reinterpret_cast<void*>(GetProcAddress(kernel, "IsWow64Process")));
        BOOL wow64 = FALSE;
        return query && query(GetCurrentProcess(), &wow64) && wow64;
    }

    bool IsPreinstallationEnvironment() override {
        HKEY key = nullptr;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\MiniNT", 0, KEY_READ, &key) !=
            ERROR_SUCCESS) {
            return false;
        }
        RegCloseKey(key);
        return true;
    }
};

}  // namespace

std::shared_ptr<SystemProbe> MakeSystemProbe() { return std::make_shared<WindowsSystemProbe>(); }

}  // namespace SystemReport
