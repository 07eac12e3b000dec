// The scheduler library through LoadLibraryExW, searched only in the executable's folder.
#include "core/common/windows_api.h"
#include "products/imager/system_report/scheduler_library.h"

namespace SystemReport {
namespace {

using CreateReportRoutine = void(__cdecl*)(ScheduleReportBuffer*);
using FreeMemoryRoutine = void(__cdecl*)(void*);

class WindowsSchedulerLibrary final : public SchedulerLibrary {
public:
    WindowsSchedulerLibrary(HMODULE module, CreateReportRoutine create, FreeMemoryRoutine free)
        : module_(module), create_(create), free_(free) {}
    ~WindowsSchedulerLibrary() override { FreeLibrary(module_); }
    void CreateLocalReport(ScheduleReportBuffer* buffer) override { create_(buffer); }
    void FreeMemory(void* data) override { free_(data); }

private:
    HMODULE module_;
    CreateReportRoutine create_;
    FreeMemoryRoutine free_;
};

}  // namespace

const wchar_t* SchedulerLibraryFileName() { return L"schedmgr.dll"; }

Common::Error LoadSchedulerLibrary(const std::filesystem::path& folder, std::unique_ptr<SchedulerLibrary>& library) {
    std::filesystem::path path = folder / SchedulerLibraryFileName();
    // The library and its own dependencies come from the executable's folder and System32 only, never from
    // the current directory: the tool runs elevated. Systems without the restricted search flags (Vista
    // before its loader update) refuse them with ERROR_INVALID_PARAMETER; the altered search path is the
    // closest they offer.
    HMODULE module = LoadLibraryExW(path.c_str(), nullptr,
                                    LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!module && GetLastError() == ERROR_INVALID_PARAMETER) {
        module = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    }
    if (!module) return Common::Error::AddWindowsError(GetLastError());
    auto create = reinterpret_cast<CreateReportRoutine>(reinterpret_cast<void*>(GetProcAddress(module, "ScheduleCreateLocalReport")));
    auto free = reinterpret_cast<FreeMemoryRoutine>(reinterpret_cast<void*>(GetProcAddress(module, "ScheduleFreeMemory")));
    if (!create || !free) {
        DWORD code = GetLastError();
        FreeLibrary(module);
        return Common::Error::AddWindowsError(code);
    }
    library = std::make_unique<WindowsSchedulerLibrary>(module, create, free);
    return {};
}

}  // namespace SystemReport
