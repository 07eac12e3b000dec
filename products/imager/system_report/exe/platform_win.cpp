// Windows half of the entry point's platform needs.
#include <stdlib.h>

#include "core/common/log.h"
#include "core/common/windows_handles.h"
#include "products/imager/system_report/exe/platform.h"

namespace SystemReport::Platform {
namespace {

void __cdecl ReportInvalidParameter(const wchar_t* expression, const wchar_t* function, const wchar_t* file,
                                    unsigned int line, uintptr_t) {
    Common::Log::Error(std::wstring(L"Invalid parameter in a runtime call: ") + (expression ? expression : L"") +
                       L" in " + (function ? function : L"") + L" (" + (file ? file : L"") + L":" +
                       std::to_wstring(line) + L")");
}

// Set up before anything else runs, as static initialisation.
const bool kProcessPrepared = [] {
    SetErrorMode(SEM_FAILCRITICALERRORS);
    // The program runs elevated, often straight from a downloads folder: libraries that the system or a
    // runtime loads by bare name come from the system folder only, never from the current directory or
    // a file planted beside the executable. Looked up at run time, as Vista and 7 without KB2533623 lack
    // it; there at least the current directory leaves the search.
    auto restrictSearch = reinterpret_cast<BOOL(WINAPI*)(DWORD)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetDefaultDllDirectories")));
    if (!restrictSearch || !restrictSearch(LOAD_LIBRARY_SEARCH_SYSTEM32)) SetDllDirectoryW(L"");
    if (!_get_invalid_parameter_handler()) _set_invalid_parameter_handler(&ReportInvalidParameter);
    return true;
}();

}  // namespace

void PrepareProcess() { (void)kProcessPrepared; }

void ShowMessage(const std::wstring& text, const std::wstring& caption, BoxStyle style) {
    MessageBoxW(nullptr, text.c_str(), caption.c_str(), static_cast<UINT>(style));
}

void PulseStartEvent() {
    // A NULL DACL lets any process of any user open the event and wait for the start of a run.
    SECURITY_DESCRIPTOR descriptor;
    if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION)) return;
    if (!SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) return;
    SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
    Common::KernelHandle event(CreateEventW(&attributes, FALSE, FALSE, L"SystemReportStarted"));
    if (event) PulseEvent(event.Get());
}

int ExitStatus(std::uint32_t code) { return static_cast<int>(code); }

}  // namespace SystemReport::Platform
