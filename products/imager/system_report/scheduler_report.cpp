// The scheduler report.
#include "products/imager/system_report/scheduler_report.h"

#include "core/common/log.h"
#include "core/common/strings.h"
#include "products/imager/system_report/text_report.h"

namespace SystemReport {

Common::Error WriteSchedulerReport(SchedulerLibrary& library, std::ostream* out) {
    ScheduleReportBuffer buffer{nullptr, 0, 0};
    library.CreateLocalReport(&buffer);
    if (out && buffer.data && buffer.length != 0) out->write(buffer.data, static_cast<std::streamsize>(buffer.length));
    library.FreeMemory(buffer.data);
    return {};
}

ReportSchedMgr::ReportSchedMgr(std::filesystem::path libraryFolder) : libraryFolder_(std::move(libraryFolder)) {}

Common::Error ReportSchedMgr::Create(const std::filesystem::path& folder, FileEntries& entries) {
    std::unique_ptr<SchedulerLibrary> library;
    if (Common::Error error = LoadSchedulerLibrary(libraryFolder_, library); error.Failed()) {
        Common::Log::WriteError(Common::Log::kInformation,
                                "The scheduler library " + Common::WideToUtf8(SchedulerLibraryFileName()) +
                                    " is not available; the scheduler report is left out: ",
                                error);
        return {};
    }
    TextReport text(L"Scheduler report", L"schedule.txt",
                    [&library](std::ostream* out) { return WriteSchedulerReport(*library, out); });
    return text.Create(folder, entries);
}

}  // namespace SystemReport
