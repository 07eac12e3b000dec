// The tool starter over CreateProcessW: hidden, on a private desktop, with WOW64 file-system redirection off.
#include "core/common/windows_handles.h"

#include <algorithm>
#include <optional>

#include "core/common/error.h"
#include "core/common/folders.h"
#include "products/imager/system_report/process_starter.h"

namespace SystemReport {
namespace {

constexpr wchar_t kDesktopName[] = L"BrendixSysreportDesktop";

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

template <typename Query>
std::wstring FolderFrom(Query query) {
    wchar_t buffer[MAX_PATH];
    UINT length = query(buffer, MAX_PATH);
    return length == 0 || length >= MAX_PATH ? std::wstring() : std::wstring(buffer, length);
}

// Folders compared as the file system names them: full, upper case, without a trailing separator.
std::wstring Comparable(const std::wstring& folder) {
    DWORD length = GetFullPathNameW(folder.c_str(), 0, nullptr, nullptr);
    if (length == 0) return {};
    std::wstring full(length, L'\0');
    full.resize(GetFullPathNameW(folder.c_str(), length, full.data(), nullptr));
    while (full.size() > 3 && (full.back() == L'\\' || full.back() == L'/')) full.pop_back();
    CharUpperBuffW(full.data(), static_cast<DWORD>(full.size()));
    return full;
}

bool IsAbsolute(const std::wstring& folder) {
    bool drive = folder.size() >= 3 && folder[1] == L':' && (folder[2] == L'\\' || folder[2] == L'/');
    return drive || folder.starts_with(L"\\\\");
}

// The system folders, then the PATH folders that are absolute and are neither the executable's folder
// nor the current directory.
std::vector<std::wstring> ToolFolders() {
    std::wstring system = FolderFrom([](wchar_t* buffer, UINT size) { return GetSystemDirectoryW(buffer, size); });
    std::vector<std::wstring> folders{system, system + L"\\wbem",
                                      FolderFrom([](wchar_t* buffer, UINT size) { return GetWindowsDirectoryW(buffer, size); })};
    std::wstring own = Comparable(Common::ExecutablePath().parent_path().wstring());
    std::wstring current = Comparable(FolderFrom([](wchar_t* buffer, UINT size) {
        return static_cast<UINT>(GetCurrentDirectoryW(size, buffer));
    }));
    std::wstring path(GetEnvironmentVariableW(L"PATH", nullptr, 0), L'\0');
    path.resize(GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size())));
    for (std::wstring_view rest = path; !rest.empty();) {
        size_t end = std::min(rest.find(L';'), rest.size());
        std::wstring folder(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (folder.size() >= 2 && folder.front() == L'"' && folder.back() == L'"') folder = folder.substr(1, folder.size() - 2);
        if (!IsAbsolute(folder)) continue;
        std::wstring comparable = Comparable(folder);
        if (comparable != own && comparable != current) folders.push_back(folder);
    }
    return folders;
}

// The program that CreateProcessW is to run. Given no application name it would look in the
// executable's own folder and the current directory first: a reg.exe or wmic.exe planted beside the
// report tool, often in a downloads folder, would run elevated. So the command line keeps the bare name
// and the program is named by its full path, found in the system's folders only. A quoted path (the
// older System Information) is used as it is given.
std::optional<std::wstring> FindTool(const std::wstring& executable) {
    if (executable.starts_with(L'"')) return executable.substr(1, executable.find(L'"', 1) - 1);
    if (executable.find_first_of(L"\\/:") != std::wstring::npos) return executable;
    // As CreateProcessW completes a name without an extension.
    std::wstring file = executable.find(L'.') == std::wstring::npos ? executable + L".exe" : executable;
    for (const std::wstring& folder : ToolFolders()) {
        if (folder.empty()) continue;
        std::wstring candidate = folder + L"\\" + file;
        DWORD attributes = GetFileAttributesW(candidate.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY)) return candidate;
    }
    return std::nullopt;
}

}  // namespace

ProcessStarterImpl::~ProcessStarterImpl() { Terminate(); }

bool ProcessStarterImpl::Start(const std::wstring& executable, const std::wstring& arguments) {
    {
        std::lock_guard guard(lock_);
        exitCode_ = -1;
        failure_.clear();
    }
    // Any window the tool opens lands on this desktop and is never seen. Without it the tool still runs,
    // on the caller's desktop, hidden by its start-up information.
    Common::DesktopHandle desktop(CreateDesktopW(kDesktopName, nullptr, nullptr, 0, GENERIC_ALL, nullptr));
    std::wstring desktopName = kDesktopName;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_HIDE;
    if (desktop) startup.lpDesktop = desktopName.data();

    // Before the search, so that it sees the native System32.
    FileSystemRedirectionOff redirection;
    // The tools' own children search the current directory no more than the tools do: the variable is
    // inherited.
    SetEnvironmentVariableW(L"NoDefaultCurrentDirectoryInExePath", L"1");

    std::optional<std::wstring> program = FindTool(executable);
    if (!program) {
        std::lock_guard guard(lock_);
        failure_ = kToolNotFound;
        return false;
    }
    std::wstring commandLine = executable + L" " + arguments;
    PROCESS_INFORMATION info{};
    // Suspended until its handle is held, so that a Terminate from another thread cannot come in between.
    if (!CreateProcessW(program->c_str(), commandLine.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW | CREATE_SUSPENDED,
                        nullptr, nullptr, &startup, &info)) {
        DWORD error = GetLastError();
        std::lock_guard guard(lock_);
        failure_ = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND
                            ? std::wstring(kToolNotFound)
                            : Common::Error::AddWindowsError(error).Message();
        return false;
    }
    Common::KernelHandle process(info.hProcess);
    Common::KernelHandle thread(info.hThread);
    bool terminated = false;
    {
        std::lock_guard guard(lock_);
        process_ = reinterpret_cast<std::intptr_t>(process.Get());
        terminated = terminateRequested_ && TerminateProcess(process.Get(), 1);
    }
    if (!terminated) ResumeThread(thread.Get());
    HANDLE waitOn = process.Get();
    DWORD waited = WaitForMultipleObjects(1, &waitOn, FALSE, static_cast<DWORD>(timeout_.count()));
    DWORD error = waited == WAIT_FAILED ? GetLastError() : ERROR_SUCCESS;
    std::lock_guard guard(lock_);
    DWORD code = 0;
    if (waited == WAIT_OBJECT_0 && GetExitCodeProcess(process.Get(), &code)) {
        exitCode_ = static_cast<std::int32_t>(code);
    } else if (waited == WAIT_TIMEOUT) {
        failure_ = kToolLeftRunning;
    } else {
        failure_ = Common::Error::AddWindowsError(waited == WAIT_OBJECT_0 ? GetLastError() : error).Message();
    }
    // At the time-out the tool is left running, deliberately: only the handle goes, and Terminate no
    // longer sees it before it is closed.
    process_ = 0;
    return true;
}

bool ProcessStarterImpl::Terminate() {
    std::lock_guard guard(lock_);
    terminateRequested_ = true;
    if (process_ == 0) return false;
    // The handle is held only while Start waits on it; Start closes it once the wait ends, as closing a
    // handle that another thread waits on is undefined.
    return TerminateProcess(AsHandle(process_), 1) != FALSE;
}

}  // namespace SystemReport
