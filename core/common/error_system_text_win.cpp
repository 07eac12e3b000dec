// System message texts from the Windows message tables.
#include "core/common/error_system_text.h"
#include "core/common/windows_api.h"

namespace Common::Detail {
namespace {

// FormatMessageA in the neutral language with the default sub-language (2048), converted from the
// system's 8-bit code page; any failure leaves the text empty.
std::wstring FormatSystemText(DWORD flags, HMODULE source, DWORD code) {
    char* buffer = nullptr;
    DWORD length = FormatMessageA(flags | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_ALLOCATE_BUFFER, source,
                                  code, MAKELANGID(LANG_NEUTRAL, SUBLANG_SYS_DEFAULT),
                                  reinterpret_cast<char*>(&buffer), 0, nullptr);
    std::wstring text;
    if (length != 0 && buffer) {
        int wide = MultiByteToWideChar(CP_ACP, 0, buffer, static_cast<int>(length), nullptr, 0);
        if (wide > 0) {
            text.resize(static_cast<size_t>(wide));
            MultiByteToWideChar(CP_ACP, 0, buffer, static_cast<int>(length), text.data(), wide);
        }
        while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r' || text.back() == L' ')) text.pop_back();
    }
    if (buffer) LocalFree(buffer);
    return text;
}

}  // namespace

std::wstring WindowsErrorText(std::uint32_t code) { return FormatSystemText(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code); }

std::wstring HResultText(std::uint32_t code) { return FormatSystemText(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code); }

std::wstring NtStatusText(std::uint32_t code) {
    HMODULE ntdll = GetModuleHandleW(L"NTDLL.DLL");
    if (!ntdll) return {};
    return FormatSystemText(FORMAT_MESSAGE_FROM_HMODULE, ntdll, code);
}

}  // namespace Common::Detail
