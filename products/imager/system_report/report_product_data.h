// The product data item: the maker's folders below the machine-wide and the per-user application-data
// folders go into the archive under "Application Data", the machine-wide one through the 8-bit filter, or
// the 16-bit one for a file of UTF-16 text (see text_encoding.h for how it is told).
#pragma once

#include <memory>

#include "core/common/folders.h"
#include "products/imager/system_report/report.h"
#include "products/imager/system_report/report_context.h"

namespace SystemReport {

class ReportProductData final : public Report {
public:
    // Takes the run's folder service and its two shared filters.
    explicit ReportProductData(const ReportContext& context);
    // Writes the online-backup details into each maker folder, then appends the two folder entries
    // (machine-wide first); a folder that cannot be located adds none. Always succeeds.
    Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) override;

private:
    std::shared_ptr<Common::FolderService> folders_;
    std::shared_ptr<CopyFileFilter> textFilter_;
};

}  // namespace SystemReport
