// Runs one tool whose report is what it prints: its output is gathered up to a cap, and at its time limit,
// at the cap or on a stop the tool is killed together with everything it started.
#pragma once

#include <chrono>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "products/imager/system_report/capped_output.h"

namespace SystemReport {

struct ToolEnd {
    enum class How {
        kExited,     // by itself; `code` is its exit code (128 + the signal when a signal ended it)
        kTimedOut,   // killed at the time limit
        kCapped,     // killed once the output could take no more
        kStopped,    // killed by Terminate
    };
    How how = How::kExited;
    int code = 0;
};

class CapturedTool {
public:
    CapturedTool() = default;
    CapturedTool(const CapturedTool&) = delete;
    CapturedTool& operator=(const CapturedTool&) = delete;
    ~CapturedTool();

    // Runs `tool` with `arguments` (argv[1]...); standard output and, unless `discardErrors`, standard
    // error go to `output`. An error only when the tool could not be started. Whatever the tool's group
    // still holds when it ends is killed, so that no child keeps its output open or runs on.
    Common::Error Run(const std::filesystem::path& tool, const std::vector<std::string>& arguments, bool discardErrors,
                      std::chrono::milliseconds limit, CappedOutput& output, ToolEnd& end);
    // From any thread: kills the running tool's group, and every tool run afterwards at once.
    void Terminate();

private:
    std::mutex lock_;
    int group_ = 0;  // the running tool's process group, 0 when none
    bool terminateRequested_ = false;
};

}  // namespace SystemReport
