// The tool starter over CreateProcessW: hidden, on a private desktop, with WOW64 file-system redirection off.
#include "core/common/windows_api.h"
#include "products/imager/system_report/process_starter.h"

namespace SystemReport {
namespace {

constexpr wchar_t kDesktopName[] = L"BrendixSysreportDesktop";

// Any window the tool opens lands on this desktop and is never seen. Without it the tool still runs, on
// the caller's desktop, hidden by its start-up information.
class PrivateDesktop {
public:
    PrivateDesktop() : desktop_(CreateDesktopW(kDesktopName, nullptr, nullptr, 0, GENERIC_ALL, nullptr)) {}
    ~PrivateDesktop() {
        if (desktop_) CloseDesktop(desktop_);
    }
    PrivateDesktop(const PrivateDesktop&) = delete;
    PrivateDesktop& operator=(const PrivateDesktop&) = delete;

    bool Created() const { return desktop_ != nullptr; }

private:
    HDESK desktop_;
};

// A 32-bit process on 64-bit Windows would otherwise start the 32-bit tools of SysWOW64, which see the
// 32-bit registry view and the redirected folders. Looked up at run time: systems without WOW64 lack it.
class FileSystemRedirectionOff {
public:
    FileSystemRedirectionOff() {
        HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
        if (!kernel) return;
        auto disable = reinterpret_cast<BOOL(WINAPI*)(PVOID*)>(
            reinterpret_cast<void*>(GetProcAddress(kernel, "Wow64DisableWow64FsRedirection")));
        revert_ = reinterpret_cast<BOOL(WINAPI*)(PVOID)>(
            reinterpret_cast<void*>(GetProcAddress(kernel, "Wow64RevertWow64FsRedirection")));
        active_ = disable && revert_ && disable(&previous_);
    }
    ~FileSystemRedirectionOff() {
        if (active_) revert_(previous_);
    }
    FileSystemRedirectionOff(const FileSystemRedirectionOff&) = delete;
    FileSystemRedirectionOff& operator=(const FileSystemRedirectionOff&) = delete;

private:
    BOOL(WINAPI* revert_)(PVOID) = nullptr;
    PVOID previous_ = nullptr;
    bool active_ = false;
};

HANDLE AsHandle(std::intptr_t process) { return reinterpret_cast<HANDLE>(process); }

}  // namespace

ProcessStarterImpl::ProcessStarterImpl(std::chrono::milliseconds timeout) : timeout_(timeout) {}

ProcessStarterImpl::~ProcessStarterImpl() { Terminate(); }

bool ProcessStarterImpl::Start(const std::wstring& executable, const std::wstring& arguments) {
    {
        std::lock_guard guard(lock_);
        exitCode_ = -1;
    }
    PrivateDesktop desktop;
    std::wstring desktopName = kDesktopName;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_HIDE;
    if (desktop.Created()) startup.lpDesktop = desktopName.data();

    FileSystemRedirectionOff redirection;
    // The report runs elevated, often from a downloads folder: a bare tool name ("reg", "wmic") must never
    // resolve to a program planted in the current directory. The variable is inherited, so the tools'
    // own children search the same way.
    SetEnvironmentVariableW(L"NoDefaultCurrentDirectoryInExePath", L"1");

    std::wstring commandLine = executable + L" " + arguments;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &info)) {
        return false;
    }
    CloseHandle(info.hThread);
    {
        std::lock_guard guard(lock_);
        process_ = reinterpret_cast<std::intptr_t>(info.hProcess);
    }
    DWORD waited = WaitForMultipleObjects(1, &info.hProcess, FALSE, static_cast<DWORD>(timeout_.count()));
    std::lock_guard guard(lock_);
    DWORD code = 0;
    if (waited == WAIT_OBJECT_0 && GetExitCodeProcess(info.hProcess, &code)) exitCode_ = static_cast<std::int32_t>(code);
    // At the time-out the tool is left running, deliberately: only the handle goes.
    CloseHandle(info.hProcess);
    process_ = 0;
    return true;
}

bool ProcessStarterImpl::Terminate() {
    std::lock_guard guard(lock_);
    if (process_ == 0) return false;
    // The handle is held only while Start waits on it; Start closes it once the wait ends, as closing a
    // handle that another thread waits on is undefined.
    return TerminateProcess(AsHandle(process_), 1) != FALSE;
}

std::int32_t ProcessStarterImpl::GetExitCode() {
    std::lock_guard guard(lock_);
    return exitCode_;
}

}  // namespace SystemReport
