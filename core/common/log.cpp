// Log statements forwarded to the logging library, and the formatters it is given.
#include "core/common/log.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "core/common/source_position.h"
#include "core/common/strings.h"
#include "core/logging/logging.h"

namespace Common::Log {

void Write(int level, std::string_view text, std::source_location where) {
    Logging_Write(nullptr, level, where.file_name(), ShortFunctionName(where.function_name()).c_str(), where.line(),
                  std::string(text));
}

void Write(int level, std::wstring_view text, std::source_location where) {
    Write(level, WideToUtf8(text), where);
}

void WriteError(int level, std::string_view text, const Common::Error& error, std::source_location where) {
    Logging_WriteError(nullptr, level, where.file_name(), ShortFunctionName(where.function_name()).c_str(),
                       where.line(), std::string(text), &error);
}

std::string FormatErrorForLog(const void* error) {
    return error ? static_cast<const Common::Error*>(error)->ToString() : std::string("Success");
}

std::string FormatFieldForLog(const char* field, std::uint64_t value) {
    if (std::strcmp(field, "trace level") == 0) {
        static const char* const words[] = {"debug", "information", "warning", "error", "critical error"};
        if (value >= 1 && value <= 5) return words[value - 1];
        return std::to_string(value);
    }
    if (std::strcmp(field, "code") == 0) {
        char buffer[24];
        std::snprintf(buffer, sizeof buffer, "0x%llx", static_cast<unsigned long long>(value));
        return buffer;
    }
    return std::to_string(value);
}

}  // namespace Common::Log
