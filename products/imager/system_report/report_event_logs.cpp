// The event-log backup items.
#include "products/imager/system_report/report_event_logs.h"

#include "core/common/localized.h"

namespace SystemReport {

ReportEventLog::ReportEventLog(std::wstring logName, std::wstring archiveName, std::unique_ptr<ProcessStarter> starter)
    : ReportProcessBase(std::move(starter)), logName_(std::move(logName)), archiveName_(std::move(archiveName)) {}

std::wstring ReportEventLog::GetExecutable() { return L"wmic"; }

std::wstring ReportEventLog::GetArguments(const std::filesystem::path& folder, std::wstring& name) {
    return L"nteventlog where \"Logfilename='" + logName_ + L"'\" Call BackupEventLog " + QuotedPath(folder, name);
}

FileEntry ReportEventLog::MakeFileEntry(const std::filesystem::path& path) {
    return {path, archiveName_, Common::Localized(archiveName_), nullptr, false, false};
}

ReportAppLog::ReportAppLog(std::unique_ptr<ProcessStarter> starter)
    : ReportEventLog(L"Application", L"applog.evt", std::move(starter)) {}

ReportSysLog::ReportSysLog(std::unique_ptr<ProcessStarter> starter)
    : ReportEventLog(L"System", L"syslog.evt", std::move(starter)) {}

}  // namespace SystemReport
