// The tool items of a Windows run.
#include "products/imager/system_report/report_system_tools.h"

namespace SystemReport {

std::vector<ReportPtr> MakeSystemToolItems(const ReportContext& context) { return MakeWindowsToolItems(context); }

}  // namespace SystemReport
