// The user rights assignment, exported by the security-configuration tool.
#pragma once

#include <memory>

#include "products/imager/system_report/copy_file_filter.h"
#include "products/imager/system_report/report_process_base.h"

namespace SystemReport {

// "secedit /export /areas USER_RIGHTS /cfg "<path>"" as "rights.txt". The rights name accounts, so the
// entry carries the 8-bit filter; the tool may write UTF-16 text, which that filter's patterns seldom
// match: a known limit, kept deliberately so that reports stay as support knows them.
class ReportUserRights final : public ReportProcessBase {
public:
    explicit ReportUserRights(std::shared_ptr<CopyFileFilter> textFilter,
                              std::unique_ptr<ProcessStarter> starter = std::make_unique<ProcessStarterImpl>());

protected:
    std::wstring GetExecutable() override;
    std::wstring GetArguments(const std::filesystem::path& folder, std::wstring& name) override;
    FileEntry MakeFileEntry(const std::filesystem::path& path) override;

private:
    std::shared_ptr<CopyFileFilter> textFilter_;
};

}  // namespace SystemReport
