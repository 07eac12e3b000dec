// printf-style formatting into std::string for the fixed-width report texts.
#pragma once

#include <string>

// The formats are the C library's (with "ll" for 64-bit values), checked as GNU formats: the mingw build
// uses the C runtime's ANSI functions, so it prints exactly what the Linux build prints. Clang knows only
// the "printf" archetype, which is the same check there.
#if defined(__clang__)
#define DAAPI_PRINTF_LIKE(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define DAAPI_PRINTF_LIKE(formatIndex, firstArgument) __attribute__((format(gnu_printf, formatIndex, firstArgument)))
#endif

namespace DaApi {

std::string Printf(const char* format, ...) DAAPI_PRINTF_LIKE(1, 2);
void AppendPrintf(std::string& out, const char* format, ...) DAAPI_PRINTF_LIKE(2, 3);

}  // namespace DaApi
