// The user rights item.
#include "products/imager/system_report/report_user_rights.h"

#include "core/common/localized.h"

namespace SystemReport {

ReportUserRights::ReportUserRights(std::shared_ptr<CopyFileFilter> textFilter, std::unique_ptr<ProcessStarter> starter)
    : ReportProcessBase(std::move(starter)), textFilter_(std::move(textFilter)) {}

std::wstring ReportUserRights::GetExecutable() { return L"secedit"; }

std::wstring ReportUserRights::GetArguments(const std::filesystem::path& folder, std::wstring& name) {
    return L"/export /areas USER_RIGHTS /cfg " + QuotedPath(folder, name);
}

FileEntry ReportUserRights::MakeFileEntry(const std::filesystem::path& path) {
    return {path, L"rights.txt", Common::Localized(L"User rights"), textFilter_, false, false};
}

}  // namespace SystemReport
