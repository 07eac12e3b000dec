// One report run: the item list in its fixed order, Create, SaveAs.
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "core/common/error.h"
#include "products/imager/system_report/report_context.h"
#include "products/imager/system_report/report_manager.h"

namespace SystemReport {

// The context of a run on this machine: one instance of each filter, the system's folders.
ReportContext MakeRunContext();

// The run's items in the order in which they run, `locations` last; making them starts no work.
std::vector<ReportPtr> MakeReportItems(ReportContext& context, ReportPtr locations);

// Makes the locations item, whose discovery starts at once, readies the disk-access interface, and adds
// the items in the order in which they run; `manager` must not hold any yet.
void AddReportItems(ReportManager& manager, ReportContext& context);

// Opens the target, builds the list in `manager` (empty; its Stop may be called from another thread at any
// time), creates the report and saves it as `fileName`.
Common::Error GenerateReport(ReportManager& manager, const std::filesystem::path& fileName);

}  // namespace SystemReport
