// The Windows tool items of a run.
#include "products/imager/system_report/report_system_tools.h"

#include "products/imager/system_report/report_event_logs.h"
#include "products/imager/system_report/report_msinfo32.h"
#include "products/imager/system_report/report_registry_keys.h"
#include "products/imager/system_report/report_user_rights.h"
#include "products/imager/system_report/report_wmi_pnp.h"
#include "products/imager/system_report/system_probe.h"

namespace SystemReport {

std::vector<ReportPtr> MakeWindowsToolItems(const ReportContext& context) {
    std::shared_ptr<SystemProbe> probe = context.systemProbe ? context.systemProbe : MakeSystemProbe();
    std::vector<ReportPtr> items;
    items.push_back(std::make_shared<ReportSysLog>());
    items.push_back(std::make_shared<ReportAppLog>());
    items.push_back(std::make_shared<ReportUserRights>(context.textFilter));
    items.push_back(std::make_shared<ReportRegistryKeys>(context.wideTextFilter));
    if (probe->IsWow64Process()) items.push_back(std::make_shared<ReportRegistryKeys64>(context.wideTextFilter));
    items.push_back(std::make_shared<ReportMSInfo32>(probe));
    if (probe->IsPreinstallationEnvironment()) {
        items.push_back(std::make_shared<ReportWmiPnpAll>());
        items.push_back(std::make_shared<ReportWmiPnpVen>());
        items.push_back(std::make_shared<ReportWmiPnpStorageAndNetwork>());
    }
    return items;
}

}  // namespace SystemReport
