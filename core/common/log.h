// Log statements of this program: one call per line, carrying its source position, to the default channel.
#pragma once

#include <source_location>
#include <string_view>

#include "core/common/error.h"

namespace Common::Log {

enum Level : int { kDebug = 1, kInformation = 2, kWarning = 3, kError = 4, kCritical = 5 };

// The channel of every line of this program.
inline constexpr const char* kChannel = "system_report";

void Write(int level, std::string_view text, std::source_location where);
void Write(int level, std::wstring_view text, std::source_location where);
// `text` followed by the error's text form.
void WriteError(int level, std::string_view text, const Common::Error& error,
                std::source_location where = std::source_location::current());

#define COMMON_LOG_LEVEL_FUNCTION(Name, level)                                                            \
    inline void Name(std::string_view text, std::source_location where = std::source_location::current()) { \
        Write(level, text, where);                                                                         \
    }                                                                                                      \
    inline void Name(std::wstring_view text, std::source_location where = std::source_location::current()) { \
        Write(level, text, where);                                                                         \
    }
COMMON_LOG_LEVEL_FUNCTION(Debug, kDebug)
COMMON_LOG_LEVEL_FUNCTION(Info, kInformation)
COMMON_LOG_LEVEL_FUNCTION(Warning, kWarning)
COMMON_LOG_LEVEL_FUNCTION(Error, kError)
COMMON_LOG_LEVEL_FUNCTION(Critical, kCritical)
#undef COMMON_LOG_LEVEL_FUNCTION

// The routines that the logging library is given to turn this program's errors and fields into text.
std::string FormatErrorForLog(const void* error);
// "trace level" becomes its severity word ("debug" ... "critical error", other values as a number);
// "$line" and other numbers are decimal; "code" is hexadecimal with 0x.
std::string FormatFieldForLog(const char* field, std::uint64_t value);

}  // namespace Common::Log
