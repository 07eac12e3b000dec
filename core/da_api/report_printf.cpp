// printf-style formatting into std::string.
#include "core/da_api/report_printf.h"

#include <cstdarg>
#include <cstdio>

namespace DaApi {
namespace {

void AppendV(std::string& out, const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length <= 0) return;
    std::size_t start = out.size();
    out.resize(start + static_cast<std::size_t>(length) + 1);
    std::vsnprintf(out.data() + start, static_cast<std::size_t>(length) + 1, format, args);
    out.resize(start + static_cast<std::size_t>(length));
}

}  // namespace

std::string Printf(const char* format, ...) {
    std::string out;
    va_list args;
    va_start(args, format);
    AppendV(out, format, args);
    va_end(args);
    return out;
}

void AppendPrintf(std::string& out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    AppendV(out, format, args);
    va_end(args);
}

}  // namespace DaApi
