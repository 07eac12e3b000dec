// Running a tool for a report item and naming its file for the archive.
#include "products/imager/system_report/report_process_base.h"

#include <cstdio>
#include <iterator>

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

// Small codes as a shell shows them; Windows status codes (0xC0000005) in hexadecimal.
std::wstring ExitCodeText(std::int32_t code) {
    if (code >= 0 && code < 0x10000) return std::to_wstring(code);
    wchar_t text[16];
    std::swprintf(text, std::size(text), L"0x%08X", static_cast<unsigned>(code));
    return text;
}

}  // namespace

ReportProcessBase::ReportProcessBase(std::unique_ptr<ProcessStarter> starter) : starter_(std::move(starter)) {}

Common::Error ReportProcessBase::Create(const std::filesystem::path& folder, FileEntries& entries) {
    std::wstring name = Common::NewScratchName();
    std::wstring arguments = GetArguments(folder, name);
    std::wstring executable = GetExecutable();
    std::filesystem::path path = ScratchPath(folder, name);
    FileEntry entry = MakeFileEntry(path);
    // Every way out logs one line that ends with what became of the item.
    const std::wstring missing = L"; '" + entry.archiveName + L"' is not in the report.";

    if (executable.empty()) {
        Common::Log::Debug(L"No tool to run" + missing);
        return {};
    }
    if (stopped_) {
        Common::Log::Info(L"The report was stopped before " + executable + L" ran" + missing);
        return {};
    }
    Common::Log::Debug(L"Running: " + executable + L" " + arguments);
    bool started = starter_->Start(executable, arguments);
    std::wstring failure = starter_->GetFailure();
    std::int32_t code = starter_->GetExitCode();
    if (!started && failure == kToolNotFound) {
        Common::Log::Debug(L"The tool " + executable + L" was not found" + missing);
    } else if (!started) {
        Common::Log::Info(L"The tool " + executable + L" could not be started (" + failure + L")" + missing);
    } else if (code == 0) {
        Common::Log::Info(L"The tool " + executable + L" ended with exit code 0; '" + entry.archiveName + L"' added.");
        entries.push_back(std::move(entry));
        produced_.push_back(path);
    } else if (stopped_) {
        Common::Log::Info(L"The tool " + executable + L" was stopped" + missing);
    } else if (failure == kToolLeftRunning) {
        Common::Log::Info(L"The tool " + executable + L" did not end in time and was left running" + missing);
    } else if (!failure.empty()) {
        Common::Log::Info(L"The tool " + executable + L" could not be waited for (" + failure + L")" + missing);
    } else {
        Common::Log::Info(L"The tool " + executable + L" failed with exit code " + ExitCodeText(code) + missing);
    }
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
