// The Application and System event logs, backed up by the WMI command line.
#pragma once

#include "products/imager/system_report/report_process_base.h"

namespace SystemReport {

// "wmic nteventlog where "Logfilename='<log>'" Call BackupEventLog "<path>"".
class ReportEventLog : public ReportProcessBase {
protected:
    ReportEventLog(std::wstring logName, std::wstring archiveName, std::unique_ptr<ProcessStarter> starter);

    std::wstring GetExecutable() override;
    std::wstring GetArguments(const std::filesystem::path& folder, std::wstring& name) override;
    FileEntry MakeFileEntry(const std::filesystem::path& path) override;

private:
    std::wstring logName_;
    std::wstring archiveName_;
};

// "applog.evt"
class ReportAppLog final : public ReportEventLog {
public:
    explicit ReportAppLog(std::unique_ptr<ProcessStarter> starter = std::make_unique<ProcessStarterImpl>());
};

// "syslog.evt"
class ReportSysLog final : public ReportEventLog {
public:
    explicit ReportSysLog(std::unique_ptr<ProcessStarter> starter = std::make_unique<ProcessStarterImpl>());
};

}  // namespace SystemReport
