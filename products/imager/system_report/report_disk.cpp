// The disk layout report item.
#include "products/imager/system_report/report_disk.h"

#include "core/da_api/da_api.h"
#include "core/da_api/disks_report.h"

namespace SystemReport {

ReportDisk::ReportDisk() : TextReport(L"Disks report", L"disks.txt", &DaApi::WriteDisksReport) {}

void ReportDisk::Stop() { DaApi::Instance().Stop(); }

}  // namespace SystemReport
