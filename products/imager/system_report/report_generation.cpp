// The list of report items of a run.
#include "products/imager/system_report/report_generation.h"

#include "core/common/folders.h"
#include "core/da_api/da_api.h"
#include "products/imager/system_report/report_boot_check.h"
#include "products/imager/system_report/report_disk.h"
#include "products/imager/system_report/filters/text_data_filter.h"
#include "products/imager/system_report/report_ksx.h"
#include "products/imager/system_report/report_locations.h"
#include "products/imager/system_report/report_product_data.h"
#include "products/imager/system_report/report_system_tools.h"
#include "products/imager/system_report/report_uefi_bootvars.h"
#include "products/imager/system_report/report_user_groups.h"
#include "products/imager/system_report/scheduler_report.h"
#include "products/imager/system_report/version_report.h"

namespace SystemReport {

ReportContext MakeRunContext() {
    ReportContext context;
    context.textFilter = std::make_shared<TextDataFilter>();
    context.wideTextFilter = std::make_shared<TextDataFilterWString>();
    context.folders = Common::MakeSystemFolderService();
    context.systemProbe = MakeSystemProbe();
    return context;
}

std::vector<ReportPtr> MakeReportItems(ReportContext& context, ReportPtr locations) {
    std::vector<ReportPtr> items{
        std::make_shared<ReportDisk>(),
        std::make_shared<ReportUefiBootvars>(),
        std::make_shared<ReportKsx>(),
        std::make_shared<ReportBootCheck>(),
        std::make_shared<ReportVersion>(),
        std::make_shared<ReportSchedMgr>(Common::ExecutablePath().parent_path()),
        std::make_shared<ReportUserGroups>(),
        std::make_shared<ReportProductData>(context),
    };
    for (ReportPtr& item : MakeSystemToolItems(context)) items.push_back(std::move(item));
    items.push_back(std::move(locations));
    return items;
}

void AddReportItems(ReportManager& manager, ReportContext& context) {
    // Made first so that its network discovery runs while the other items work; added last.
    std::shared_ptr<ReportLocations> locations = MakeReportLocations();
    DaApi::Initialize();
    for (ReportPtr& item : MakeReportItems(context, locations)) manager.Add(std::move(item));
}

Common::Error GenerateReport(ReportManager& manager, const std::filesystem::path& fileName) {
    // The user learns of a target that cannot be written before the long collection, not after it.
    if (Common::Error error = manager.OpenTarget(fileName); error.Failed()) return error;
    ReportContext context = MakeRunContext();
    AddReportItems(manager, context);
    if (Common::Error error = manager.Create(); error.Failed()) return error;
    return manager.SaveAs(fileName);
}

}  // namespace SystemReport
