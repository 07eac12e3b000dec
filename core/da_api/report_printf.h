// printf-style formatting into std::string for the fixed-width report texts.
#pragma once

#include <string>

namespace DaApi {

// The formats are the C library's (with "ll" for 64-bit values); GNU semantics on every platform, so the
// mingw build prints exactly what the Linux build prints.
std::string Printf(const char* format, ...) __attribute__((format(gnu_printf, 1, 2)));
void AppendPrintf(std::string& out, const char* format, ...) __attribute__((format(gnu_printf, 2, 3)));

}  // namespace DaApi
