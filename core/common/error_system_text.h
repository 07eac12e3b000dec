// The system's message text for a native code, one function per kind of code; each backend defines them.
#pragma once

#include <cstdint>
#include <string>

namespace Common::Detail {

std::wstring WindowsErrorText(std::uint32_t code);
std::wstring NtStatusText(std::uint32_t code);
std::wstring HResultText(std::uint32_t code);

}  // namespace Common::Detail
