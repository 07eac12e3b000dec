// Windows half of the logging platform: localtime_s and OutputDebugStringW.
#include "core/common/windows_api.h"
#include "core/logging/logging_platform.h"

namespace Logging::Platform {

std::tm LocalTime(std::time_t when) {
    std::tm result{};
    localtime_s(&result, &when);
    return result;
}

void WriteToDebugger(const std::string& utf8Line) {
    int length = MultiByteToWideChar(CP_UTF8, 0, utf8Line.data(), static_cast<int>(utf8Line.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(length > 0 ? length : 0), L'\0');
    if (length > 0) {
        MultiByteToWideChar(CP_UTF8, 0, utf8Line.data(), static_cast<int>(utf8Line.size()), wide.data(), length);
    }
    OutputDebugStringW(wide.c_str());
}

}  // namespace Logging::Platform
