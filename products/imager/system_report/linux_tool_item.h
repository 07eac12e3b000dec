// The one kind of Linux report item: a file under "Linux/" made of the output of tools and the contents of
// system files, capped in size, each tool run within a time limit.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "products/imager/system_report/captured_tool.h"
#include "products/imager/system_report/copy_file_filter.h"
#include "products/imager/system_report/report.h"

namespace SystemReport {

struct LinuxToolOptions {
    // Where tools are looked for: by default the absolute folders of PATH, then the system's own tool
    // folders (a root shell on rescue media may lack the sbin ones).
    std::vector<std::filesystem::path> searchPath = DefaultSearchPath();
    std::chrono::milliseconds timeLimit{60000};
    std::size_t sizeCap = 16u << 20;

    static std::vector<std::filesystem::path> DefaultSearchPath();
};

// One part of an item's file: a tool's output, a file, every readable file of a folder (one "name: value"
// line each, as the DMI folder of sysfs has), or the kernel's log records read from /dev/kmsg.
struct LinuxSource {
    enum class Kind { kTool, kFile, kFolder, kKernelLog };
    Kind kind;
    std::vector<std::string> words;  // kTool: the tool's name and its arguments; else the path
    bool discardErrors = false;      // kTool: standard error is left out (it would spoil JSON)

    std::string Title() const;
};

struct LinuxItemPlan {
    std::string name;  // the file's name under "Linux/"
    // Tried in order until one is there; all of them, each under a header line, when `sections`.
    std::vector<LinuxSource> sources;
    bool sections = false;
    // A log: its newest end is kept, and it goes through the 8-bit redaction filter.
    bool log = false;
};

// The full path of `tool` in the first folder of `searchPath` that has it as an executable file.
std::optional<std::filesystem::path> FindTool(const std::string& tool, const std::vector<std::filesystem::path>& searchPath);

class LinuxToolItem final : public Report {
public:
    // `filter`: the run's 8-bit filter, put on the entry of a log.
    LinuxToolItem(LinuxItemPlan plan, LinuxToolOptions options, std::shared_ptr<CopyFileFilter> filter);

    // Skipped, with one log line, when none of the sources is there; otherwise the file is written and
    // named, whatever its tools did (each tool's outcome is written where its output stands).
    Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) override;
    void Stop() override;

private:
    // Appends the source's text, or why there is none, to `output`.
    void Gather(const LinuxSource& source, CappedOutput& output);
    bool IsThere(const LinuxSource& source) const;

    const LinuxItemPlan plan_;
    const LinuxToolOptions options_;
    const std::shared_ptr<CopyFileFilter> filter_;
    CapturedTool tool_;
    std::atomic<bool> stopped_{false};
};

// One item per whole disk that has a device behind it (not a loop, device-mapper, md or RAM disk), each
// the output of "smartctl -x /dev/<disk>" in "Linux/smart-<disk>.txt". `blockFolder` lists the disks.
class LinuxSmartItem final : public Report {
public:
    explicit LinuxSmartItem(LinuxToolOptions options, std::filesystem::path blockFolder = "/sys/block");
    Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) override;
    void Stop() override;

private:
    const LinuxToolOptions options_;
    const std::filesystem::path blockFolder_;
    std::mutex lock_;
    std::shared_ptr<LinuxToolItem> running_;
    bool stopped_ = false;
};

}  // namespace SystemReport
