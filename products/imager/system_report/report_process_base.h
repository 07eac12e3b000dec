// The base of the report items that run an operating-system tool which writes one file.
#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "products/imager/system_report/process_starter.h"
#include "products/imager/system_report/report.h"

namespace SystemReport {

class ReportProcessBase : public Report {
public:
    ~ReportProcessBase() override = default;

    // Runs the tool with a fresh scratch name in `folder`; when it ends with exit code 0, its file is
    // appended to `entries`. The tool's outcome is logged, never returned: a tool that is missing, fails
    // or hangs costs the report that one file only.
    Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) override;
    // Ends the running tool (exit code 1), from another thread.
    void Stop() override;

    const std::vector<std::filesystem::path>& ProducedFiles() const { return produced_; }

protected:
    explicit ReportProcessBase(std::unique_ptr<ProcessStarter> starter);

    // The program to run, with its path quoted where it has one; empty when there is nothing to run.
    virtual std::wstring GetExecutable() = 0;
    // The argument string; `name` is the scratch file's name, to which an item may append an extension.
    virtual std::wstring GetArguments(const std::filesystem::path& folder, std::wstring& name) = 0;
    virtual FileEntry MakeFileEntry(const std::filesystem::path& path) = 0;

    // "\"" + the full path of `name` in `folder` + "\"": every path in an argument string is quoted.
    static std::wstring QuotedPath(const std::filesystem::path& folder, const std::wstring& name);

private:
    std::unique_ptr<ProcessStarter> starter_;
    std::vector<std::filesystem::path> produced_;
    std::atomic<bool> stopped_{false};
};

}  // namespace SystemReport
