// The report item that writes the disk layout report into "disks.txt".
#pragma once

#include "products/imager/system_report/text_report.h"

namespace SystemReport {

class ReportDisk final : public TextReport {
public:
    ReportDisk();
    // Passes the request to the disk-access interface, which ends a running walk or read as soon as it can.
    void Stop() override;
};

}  // namespace SystemReport
