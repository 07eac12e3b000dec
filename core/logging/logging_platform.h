// What the logging library needs from the platform: local time and the debugger output.
#pragma once

#include <ctime>
#include <string>

namespace Logging::Platform {

std::tm LocalTime(std::time_t when);
void WriteToDebugger(const std::string& utf8Line);

}  // namespace Logging::Platform
