// Running a tool for a report item and naming its file for the archive.
#include "products/imager/system_report/report_process_base.h"

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/common/uuid.h"

namespace SystemReport {
namespace {

// Through UTF-8: a wide conversion of a path would follow the C library's locale off Windows and fail on
// the first non-ASCII character.
std::filesystem::path ScratchPath(const std::filesystem::path& folder, const std::wstring& name) {
    return folder / Common::PathFromUtf8(Common::WideToUtf8(name));
}

}  // namespace

ReportProcessBase::ReportProcessBase(std::unique_ptr<ProcessStarter> starter) : starter_(std::move(starter)) {}

Common::Error ReportProcessBase::Create(const std::filesystem::path& folder, FileEntries& entries) {
    std::wstring name = Common::NewScratchName();
    std::wstring arguments = GetArguments(folder, name);
    std::wstring executable = GetExecutable();
    std::filesystem::path path = ScratchPath(folder, name);
    FileEntry entry = MakeFileEntry(path);
    const std::wstring what = L"'" + entry.archiveName + L"'";

    if (executable.empty()) {
        Common::Log::Debug(L"No tool to run for " + what + L"; it is not in the report.");
        return {};
    }
    if (stopped_) {
        Common::Log::Debug(L"The report was stopped before the tool for " + what + L" ran.");
        return {};
    }
    Common::Log::Debug(L"Running: " + executable + L" " + arguments);
    if (!starter_->Start(executable, arguments)) {
        Common::Log::Debug(L"The tool " + executable + L" could not be started; " + what + L" is not in the report.");
        return {};
    }
    if (std::int32_t code = starter_->GetExitCode(); code != 0) {
        Common::Log::Info(L"The tool " + executable +
                          (code == -1 ? std::wstring(L" did not end in time")
                                      : L" ended with exit code " + std::to_wstring(code)) +
                          L"; " + what + L" is not in the report.");
        return {};
    }
    entries.push_back(std::move(entry));
    produced_.push_back(path);
    return {};
}

void ReportProcessBase::Stop() {
    stopped_ = true;
    starter_->Terminate();
}

std::wstring ReportProcessBase::QuotedPath(const std::filesystem::path& folder, const std::wstring& name) {
    return L"\"" + Common::Utf8ToWide(Common::PathToUtf8(ScratchPath(folder, name))) + L"\"";
}

}  // namespace SystemReport
