// The boot configuration report item.
#include "products/imager/system_report/report_ksx.h"

#include "core/da_api/da_api.h"
#include "core/da_api/ksx_report.h"

namespace SystemReport {

ReportKsx::ReportKsx()
    : TextReport(L"Selvora report", L"ksx.txt",
                 [this](std::ostream* out) { return DaApi::WriteKsxReport(out, folder_); }) {}

Common::Error ReportKsx::Create(const std::filesystem::path& folder, FileEntries& entries) {
    folder_ = folder;
    return TextReport::Create(folder, entries);
}

void ReportKsx::Stop() { DaApi::Instance().Stop(); }

}  // namespace SystemReport
