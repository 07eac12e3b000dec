// The Plug-and-Play device list items and their WMI queries.
#include "products/imager/system_report/report_wmi_pnp.h"

#include "core/common/localized.h"

namespace SystemReport {
namespace {

constexpr wchar_t kAllDevices[] =
    L"path Win32_PnPEntity get Caption, ClassGuid, Manufacturer, Name, PNPDeviceID, Service, Status";

// The class GUIDs are the device setup classes of hard-disk controllers, SCSI/RAID controllers and network
// adapters.
constexpr wchar_t kStorageAndNetworkDevices[] =
    L"path Win32_PnPEntity where \"(PNPDeviceID like '%VEN%') and ("
    L"ClassGuid like '{4d36e96a-e325-11ce-bfc1-08002be10318}' or "
    L"ClassGuid like '{4d36e97b-e325-11ce-bfc1-08002be10318}' or "
    L"ClassGuid like '{4d36e972-e325-11ce-bfc1-08002be10318}' or "
    L"Service like '%USBXHCI%' or Service like '%nvme%')\" get Caption";

constexpr wchar_t kVendorDevices[] =
    L"path Win32_PnPEntity where \"PNPDeviceID like '%VEN%'\" "
    L"get Caption, ClassGuid, Manufacturer, Name, PNPDeviceID, Service, Status";

}  // namespace

ReportWmiPnp::ReportWmiPnp(std::wstring query, std::wstring archiveName, std::wstring titleKey,
                           std::unique_ptr<ProcessStarter> starter)
    : ReportProcessBase(std::move(starter)),
      query_(std::move(query)),
      archiveName_(std::move(archiveName)),
      titleKey_(std::move(titleKey)) {}

std::wstring ReportWmiPnp::GetExecutable() { return L"wmic"; }

std::wstring ReportWmiPnp::GetArguments(const std::filesystem::path& folder, std::wstring& name) {
    return L"/OUTPUT:" + QuotedPath(folder, name) + L" " + query_;
}

FileEntry ReportWmiPnp::MakeFileEntry(const std::filesystem::path& path) {
    return {path, archiveName_, Common::Localized(titleKey_), nullptr, false, false};
}

ReportWmiPnpAll::ReportWmiPnpAll(std::unique_ptr<ProcessStarter> starter)
    : ReportWmiPnp(kAllDevices, L"wmi-PnPEntities-all.txt", L"PnP controllers", std::move(starter)) {}

ReportWmiPnpStorageAndNetwork::ReportWmiPnpStorageAndNetwork(std::unique_ptr<ProcessStarter> starter)
    : ReportWmiPnp(kStorageAndNetworkDevices, L"wmi-PnPEntities-StorageAndNetwork.txt",
                   L"PnP storage controllers and PnP network controllers", std::move(starter)) {}

ReportWmiPnpVen::ReportWmiPnpVen(std::unique_ptr<ProcessStarter> starter)
    : ReportWmiPnp(kVendorDevices, L"wmi-PnPEntities-InclVenInfo.txt", L"PnP controllers with vendor's information",
                   std::move(starter)) {}

}  // namespace SystemReport
