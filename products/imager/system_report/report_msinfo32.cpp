// The System Information item.
#include "products/imager/system_report/report_msinfo32.h"

#include "core/common/localized.h"

namespace SystemReport {

ReportMSInfo32::ReportMSInfo32(std::shared_ptr<SystemProbe> probe, std::unique_ptr<MsInfoHost> host,
                               std::unique_ptr<ProcessStarter> starter)
    : ReportProcessBase(std::move(starter)), probe_(std::move(probe)), host_(std::move(host)) {}

ReportMSInfo32::~ReportMSInfo32() {
    if (startedHelpService_) host_->StopHelpService();
}

std::wstring ReportMSInfo32::GetExecutable() {
    std::optional<unsigned long> major = host_->WindowsMajorVersion();
    if (!major || *major >= 6) return L"msinfo32.exe";

    if (!host_->HelpServiceRunning()) {
        if (!host_->StartHelpService()) return {};
        startedHelpService_ = true;
    }
    // A 32-bit process on 64-bit Windows sees the 32-bit program folder as "Program Files"; the tool is
    // the native one.
    std::wstring folder = probe_->IsWow64Process() ? host_->ProgramW6432Folder() : std::wstring();
    if (folder.empty()) folder = host_->ProgramFilesFolder();
    if (folder.empty()) return {};
    return L"\"" + folder + L"\\Common Files\\Microsoft Shared\\MSInfo\\msinfo32.exe\"";
}

std::wstring ReportMSInfo32::GetArguments(const std::filesystem::path& folder, std::wstring& name) {
    name += L".nfo";
    return L" /nfo " + QuotedPath(folder, name);
}

FileEntry ReportMSInfo32::MakeFileEntry(const std::filesystem::path& path) {
    return {path, L"msinfo.nfo", Common::Localized(L"MSInfo32 report"), nullptr, false, false};
}

}  // namespace SystemReport
