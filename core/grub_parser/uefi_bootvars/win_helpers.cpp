// Windows helpers of the firmware-variable backend.
#include "core/grub_parser/uefi_bootvars/win_helpers.h"

#include "core/common/strings.h"
#include "core/common/windows_handles.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"

namespace Uefi {
namespace {

constexpr const wchar_t* kSystemEnvironmentPrivilege = L"SeSystemEnvironmentPrivilege";


using RtlInitUnicodeStringFn = VOID(NTAPI*)(PUNICODE_STRING, PCWSTR);

}  // namespace

Common::Error GetPointerToFunction(const wchar_t* moduleName, const char* procedureName, FARPROC& pointer) {
    HMODULE module = GetModuleHandleW(moduleName);
    FARPROC found = module ? GetProcAddress(module, procedureName) : nullptr;
    if (!found) {
        DWORD lastError = GetLastError();
        return Common::Error::Make(
            Codes::kProcedureNotFound,
            Common::FormatPlaceholders(L"Failed to find procedure '{0}' in '{1}'.",
                                       {Common::Utf8ToWide(procedureName), moduleName}),
            Common::Error::AddWindowsError(lastError));
    }
    pointer = found;
    return {};
}

Common::Error InitUnicodeString(UNICODE_STRING& counted, const std::wstring& text) {
    RtlInitUnicodeStringFn initialize = nullptr;
    if (Common::Error error = GetPointerToFunction(L"ntdll.dll", "RtlInitUnicodeString", initialize); error.Failed()) {
        return error;
    }
    initialize(&counted, text.c_str());
    return {};
}

Common::Error EnableProcessPrivilege(const wchar_t* privilegeName) {
    Common::KernelHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.Receive())) {
        return Common::Error::AddWindowsError(GetLastError());
    }
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (!LookupPrivilegeValueW(nullptr, privilegeName, &privileges.Privileges[0].Luid)) {
        return Common::Error::AddWindowsError(GetLastError());
    }
    // AdjustTokenPrivileges succeeds even when the token lacks the privilege; only the last error says so.
    if (!AdjustTokenPrivileges(token.Get(), FALSE, &privileges, sizeof privileges, nullptr, nullptr) ||
        GetLastError() == ERROR_NOT_ALL_ASSIGNED) {
        return Common::Error::AddWindowsError(GetLastError());
    }
    return {};
}

Common::Error ObtainPriviledge() {
    if (Common::Error error = EnableProcessPrivilege(kSystemEnvironmentPrivilege); error.Failed()) {
        return Common::Error::Make(
            Codes::kPrivilege,
            Common::FormatPlaceholders(L"Failed to obtain privilege '{0}'.", {kSystemEnvironmentPrivilege}), error);
    }
    return {};
}

}  // namespace Uefi
