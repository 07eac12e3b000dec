// Plug-and-Play device lists from the WMI command line (registered only in a pre-installation environment).
#pragma once

#include "products/imager/system_report/report_process_base.h"

namespace SystemReport {

// "wmic /OUTPUT:"<path>" <query>".
class ReportWmiPnp : public ReportProcessBase {
protected:
    ReportWmiPnp(std::wstring query, std::wstring archiveName, std::wstring titleKey,
                 std::unique_ptr<ProcessStarter> starter);

    std::wstring GetExecutable() override;
    std::wstring GetArguments(const std::filesystem::path& folder, std::wstring& name) override;
    FileEntry MakeFileEntry(const std::filesystem::path& path) override;

private:
    std::wstring query_;
    std::wstring archiveName_;
    std::wstring titleKey_;
};

// Every device: "wmi-PnPEntities-all.txt".
class ReportWmiPnpAll final : public ReportWmiPnp {
public:
    explicit ReportWmiPnpAll(std::unique_ptr<ProcessStarter> starter = std::make_unique<ProcessStarterImpl>());
};

// Bus devices of the disk-controller, SCSI/RAID and network classes, and USB 3 and NVMe controllers:
// "wmi-PnPEntities-StorageAndNetwork.txt".
class ReportWmiPnpStorageAndNetwork final : public ReportWmiPnp {
public:
    explicit ReportWmiPnpStorageAndNetwork(std::unique_ptr<ProcessStarter> starter = std::make_unique<ProcessStarterImpl>());
};

// Every bus device with a vendor id: "wmi-PnPEntities-InclVenInfo.txt".
class ReportWmiPnpVen final : public ReportWmiPnp {
public:
    explicit ReportWmiPnpVen(std::unique_ptr<ProcessStarter> starter = std::make_unique<ProcessStarterImpl>());
};

}  // namespace SystemReport
