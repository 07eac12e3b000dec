// One report run: the item list in its fixed order, Create, SaveAs.
#pragma once

#include <filesystem>
#include <memory>

#include "core/common/error.h"
#include "products/imager/system_report/report_context.h"
#include "products/imager/system_report/report_manager.h"

namespace SystemReport {

// The context of a run on this machine: one instance of each filter, the system's folders.
ReportContext MakeRunContext();

// Adds the items in the order in which they run; `manager` must not hold any yet.
void AddReportItems(ReportManager& manager, ReportContext& context);

// Builds the list, creates the report and saves it as `fileName`.
Common::Error GenerateReport(const std::filesystem::path& fileName);

}  // namespace SystemReport
