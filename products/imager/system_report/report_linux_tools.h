// The Linux report items: the kernel's log and this boot's journal, the block devices and what sits on
// them, the disks' health, the system, its hardware and its network, each a file under "Linux/".
#pragma once

#include <memory>
#include <vector>

#include "products/imager/system_report/copy_file_filter.h"
#include "products/imager/system_report/linux_tool_item.h"
#include "products/imager/system_report/report.h"

namespace SystemReport {

// `textFilter`: the run's 8-bit filter, for the two logs.
std::vector<ReportPtr> MakeLinuxToolItems(std::shared_ptr<CopyFileFilter> textFilter, const LinuxToolOptions& options = {});

}  // namespace SystemReport
