// The tool items of a Linux run.
#include "products/imager/system_report/report_system_tools.h"

#include "core/common/log.h"
#include "products/imager/system_report/report_linux_tools.h"

namespace SystemReport {

std::vector<ReportPtr> MakeSystemToolItems(const ReportContext& context) {
    Common::Log::Info("The Windows tool items (event logs, user rights, registry exports, System Information, device "
                      "lists) do not apply on Linux; the Linux tool items run instead.");
    return MakeLinuxToolItems(context.textFilter);
}

}  // namespace SystemReport
