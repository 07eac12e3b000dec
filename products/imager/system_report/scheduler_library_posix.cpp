// The scheduler library through dlopen.
#include <dlfcn.h>

#include "core/common/strings.h"
#include "products/imager/system_report/scheduler_library.h"

namespace SystemReport {
namespace {

using CreateReportRoutine = void (*)(ScheduleReportBuffer*);
using FreeMemoryRoutine = void (*)(void*);

class PosixSchedulerLibrary final : public SchedulerLibrary {
public:
    PosixSchedulerLibrary(void* module, CreateReportRoutine create, FreeMemoryRoutine free)
        : module_(module), create_(create), free_(free) {}
    ~PosixSchedulerLibrary() override { dlclose(module_); }
    void CreateLocalReport(ScheduleReportBuffer* buffer) override { create_(buffer); }
    void FreeMemory(void* data) override { free_(data); }

private:
    void* module_;
    CreateReportRoutine create_;
    FreeMemoryRoutine free_;
};

Common::Error DlError() {
    const char* text = dlerror();
    return Common::Error::Make(Common::Codes::kOpenFile, Common::Utf8ToWide(text ? text : "dlopen failed"));
}

}  // namespace

const wchar_t* SchedulerLibraryFileName() { return L"libschedmgr.so"; }

Common::Error LoadSchedulerLibrary(const std::filesystem::path& folder, std::unique_ptr<SchedulerLibrary>& library) {
    std::filesystem::path path = folder / SchedulerLibraryFileName();
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) return DlError();
    auto create = reinterpret_cast<CreateReportRoutine>(dlsym(module, "ScheduleCreateLocalReport"));
    auto free = reinterpret_cast<FreeMemoryRoutine>(dlsym(module, "ScheduleFreeMemory"));
    if (!create || !free) {
        Common::Error error = DlError();
        dlclose(module);
        return error;
    }
    library = std::make_unique<PosixSchedulerLibrary>(module, create, free);
    return {};
}

}  // namespace SystemReport
