// The report items that run operating-system tools, in the order in which a run has them.
#pragma once

#include <vector>

#include "products/imager/system_report/report.h"
#include "products/imager/system_report/report_context.h"

namespace SystemReport {

// The tool items of this platform: the Windows ones on Windows; on Linux, where those tools do not exist,
// the Linux ones (report_linux_tools.h) instead, and one log line says so.
std::vector<ReportPtr> MakeSystemToolItems(const ReportContext& context);

// System and Application event logs, user rights, the registry export (with its 32-bit twin only for a
// 32-bit process on 64-bit Windows), System Information, and only in a pre-installation environment the
// three Plug-and-Play device lists, which are slow and long on an installed system. The context's system
// probe decides; without one, this machine is asked.
std::vector<ReportPtr> MakeWindowsToolItems(const ReportContext& context);

}  // namespace SystemReport
