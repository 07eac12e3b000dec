// The scheduler report: the scheduler library's own text report, passed through unchanged.
#pragma once

#include <filesystem>
#include <memory>
#include <ostream>

#include "products/imager/system_report/report.h"
#include "products/imager/system_report/scheduler_library.h"

namespace SystemReport {

// Writes the library's report bytes as they are; the buffer is freed in every case, also without a stream.
Common::Error WriteSchedulerReport(SchedulerLibrary& library, std::ostream* out);

// Loads the library from the executable's folder on first use. Where it is absent the item adds nothing
// (an information line says so): a machine without the scheduler has no schedule to report.
class ReportSchedMgr final : public Report {
public:
    explicit ReportSchedMgr(std::filesystem::path libraryFolder);
    Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) override;

private:
    std::filesystem::path libraryFolder_;
};

}  // namespace SystemReport
