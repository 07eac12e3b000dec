// The registry export items.
#include "products/imager/system_report/report_registry_keys.h"

#include "core/common/localized.h"
#include "core/common/product.h"

namespace SystemReport {

ReportRegistryKeys::ReportRegistryKeys(std::shared_ptr<CopyFileFilter> wideTextFilter,
                                       std::unique_ptr<ProcessStarter> starter)
    : ReportProcessBase(std::move(starter)), wideTextFilter_(std::move(wideTextFilter)) {}

std::wstring ReportRegistryKeys::GetExecutable() { return L"reg"; }

std::wstring ReportRegistryKeys::GetArguments(const std::filesystem::path& folder, std::wstring& name) {
    return L"EXPORT \"HKLM\\Software\\" + GetRegistryPrefix() + Common::Localized(Common::Product::kMakerName) +
           L"\" " + QuotedPath(folder, name) + L" /y";
}

FileEntry ReportRegistryKeys::MakeFileEntry(const std::filesystem::path& path) {
    return {path, L"vexreg.reg", Common::Localized(L"vexreg.reg"), wideTextFilter_, false, false};
}

std::wstring ReportRegistryKeys::GetRegistryPrefix() { return L""; }

FileEntry ReportRegistryKeys64::MakeFileEntry(const std::filesystem::path& path) {
    return {path, L"vexreg64.reg", Common::Localized(L"vexreg64.reg"), wideTextFilter_, false, false};
}

std::wstring ReportRegistryKeys64::GetRegistryPrefix() { return L"Wow6432Node\\"; }

}  // namespace SystemReport
