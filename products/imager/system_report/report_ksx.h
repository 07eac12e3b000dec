// The report item that writes the boot configuration report into "ksx.txt".
#pragma once

#include <filesystem>

#include "products/imager/system_report/text_report.h"

namespace SystemReport {

class ReportKsx final : public TextReport {
public:
    ReportKsx();
    // The scratch folder also takes the short-lived copies of the boot configuration stores.
    Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) override;
    // Passes the request to the disk-access interface, which ends a running walk or read as soon as it can.
    void Stop() override;

private:
    std::filesystem::path folder_;
};

}  // namespace SystemReport
