// POSIX half of the logging platform. There is no debugger output channel off Windows: a debugger reads
// the log file or the console.
#include "core/logging/logging_platform.h"

namespace Logging::Platform {

std::tm LocalTime(std::time_t when) {
    std::tm result{};
    localtime_r(&when, &result);
    return result;
}

void WriteToDebugger(const std::string&) {}

}  // namespace Logging::Platform
