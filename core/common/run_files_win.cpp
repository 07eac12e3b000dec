// Process identity and private folders on Windows: process creation times, the user's temporary folder.
#include "core/common/run_files.h"

#include "core/common/strings.h"
#include "core/common/uuid.h"
#include "core/common/windows_handles.h"

namespace Common {
namespace {

std::optional<std::uint64_t> CreationTime(HANDLE process) {
    FILETIME created{}, exited{}, kernel{}, user{};
    if (!GetProcessTimes(process, &created, &exited, &kernel, &user)) return std::nullopt;
    return static_cast<std::uint64_t>(created.dwHighDateTime) << 32 | created.dwLowDateTime;
}

}  // namespace

RunOwner CurrentRunOwner() {
    static const RunOwner owner{GetCurrentProcessId(), CreationTime(GetCurrentProcess()).value_or(0)};
    return owner;
}

bool IsRunning(const RunOwner& owner) {
    KernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(owner.pid)));
    // No such process id answers "invalid parameter"; one of another account answers "access denied".
    if (!process) return GetLastError() != ERROR_INVALID_PARAMETER;
    DWORD exitCode = 0;
    if (GetExitCodeProcess(process.Get(), &exitCode) && exitCode != STILL_ACTIVE) return false;
    std::optional<std::uint64_t> started = CreationTime(process.Get());
    return !started || *started == owner.started;
}

bool IsOwnRunFile(const std::filesystem::path&) { return true; }

std::error_code MakePrivateRunFolder(const std::filesystem::path& parent, std::string_view prefix,
                                     std::filesystem::path& made) {
    std::filesystem::path folder = parent / Utf8ToWide(NewRunFileName(prefix, "-" + WideToUtf8(NewScratchName())));
    if (!CreateDirectoryW(folder.c_str(), nullptr)) {
        return std::error_code(static_cast<int>(GetLastError()), std::system_category());
    }
    made = folder;
    return {};
}

}  // namespace Common
