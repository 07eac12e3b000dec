// Exports of the maker's registry key by the registry tool: the native view and, for a 32-bit process on
// 64-bit Windows, the 32-bit view below Wow6432Node as well.
#pragma once

#include <memory>

#include "products/imager/system_report/copy_file_filter.h"
#include "products/imager/system_report/report_process_base.h"

namespace SystemReport {

// "reg EXPORT "HKLM\Software\<prefix>Brendix" "<path>" /y" as "vexreg.reg"; the export is UTF-16LE text,
// hence the 16-bit filter.
class ReportRegistryKeys : public ReportProcessBase {
public:
    explicit ReportRegistryKeys(std::shared_ptr<CopyFileFilter> wideTextFilter,
                                std::unique_ptr<ProcessStarter> starter = std::make_unique<ProcessStarterImpl>());

protected:
    std::wstring GetExecutable() override;
    std::wstring GetArguments(const std::filesystem::path& folder, std::wstring& name) override;
    FileEntry MakeFileEntry(const std::filesystem::path& path) override;
    // The key path between "HKLM\Software\" and the maker's name.
    virtual std::wstring GetRegistryPrefix();

    std::shared_ptr<CopyFileFilter> wideTextFilter_;
};

// The same below "Wow6432Node\", as "vexreg64.reg".
class ReportRegistryKeys64 final : public ReportRegistryKeys {
public:
    using ReportRegistryKeys::ReportRegistryKeys;

protected:
    FileEntry MakeFileEntry(const std::filesystem::path& path) override;
    std::wstring GetRegistryPrefix() override;
};

}  // namespace SystemReport
