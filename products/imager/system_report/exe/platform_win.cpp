// Windows half of the entry point's platform needs.
#include <stdlib.h>

#include <mutex>

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

// The system ends a process at most five seconds after a close, logoff or shutdown notice; the run gets most
// of that to remove what it made.
constexpr DWORD kCloseGraceMilliseconds = 4000;

std::mutex stopLock;
std::function<void()>* stopCallback = nullptr;  // under stopLock
// Set once the run has ended; made once and kept for the process, as a handler may still wait on it.
const Common::KernelHandle runEnded(CreateEventW(nullptr, TRUE, FALSE, nullptr));

// Called by the system on a thread of its own.
BOOL WINAPI OnConsoleControl(DWORD type) {
    {
        std::lock_guard guard(stopLock);
        if (!stopCallback) return FALSE;
        Common::Log::Info("Stop requested by console event " + std::to_string(type) + ": the run is canceled.");
        (*stopCallback)();
    }
    // After Ctrl+C or Ctrl+Break the process goes on and ends its run; after the other notices it is ended
    // as soon as this returns, so wait for the run's clean-up first.
    if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT) WaitForSingleObject(runEnded.Get(), kCloseGraceMilliseconds);
    return TRUE;
}

}  // namespace

// The program is a GUI-subsystem process without a window: the console notices reach it only when it runs
// attached to a console, and a logoff or shutdown ends it without a WM_QUERYENDSESSION (that needs a
// top-level window). What such an end leaves behind is removed by the next run.
struct StopRequests::State {
    std::function<void()> onStop;
};

StopRequests::StopRequests(std::function<void()> onStop) : state_(std::make_unique<State>()) {
    state_->onStop = std::move(onStop);
    {
        std::lock_guard guard(stopLock);
        stopCallback = &state_->onStop;
    }
    if (runEnded) ResetEvent(runEnded.Get());
    if (!SetConsoleCtrlHandler(&OnConsoleControl, TRUE)) {
        Common::Log::Warning("Stop requests of the console cannot be watched.");
    }
}

StopRequests::~StopRequests() {
    SetConsoleCtrlHandler(&OnConsoleControl, FALSE);
    std::lock_guard guard(stopLock);
    stopCallback = nullptr;
    if (runEnded) SetEvent(runEnded.Get());
}

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
