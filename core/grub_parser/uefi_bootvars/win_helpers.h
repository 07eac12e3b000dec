// Windows helpers of the firmware-variable backend: native routines found at run time, counted strings,
// and the privilege that firmware-variable calls need.
#pragma once

#include <string>

#include "core/common/error.h"
#include "core/common/windows_api.h"

#include <winternl.h>

namespace Uefi {

// Looks `procedureName` up in a module that is already loaded (no loading). Fails with 0x12F0001
// "Failed to find procedure '{0}' in '{1}'." and the thread's last Windows error.
Common::Error GetPointerToFunction(const wchar_t* moduleName, const char* procedureName, FARPROC& pointer);

template <typename Function>
Common::Error GetPointerToFunction(const wchar_t* moduleName, const char* procedureName, Function& function) {
    FARPROC pointer = nullptr;
    Common::Error error = GetPointerToFunction(moduleName, procedureName, pointer);
    if (error.Succeeded()) function = reinterpret_cast<Function>(reinterpret_cast<void*>(pointer));
    return error;
}

// A counted string over `text` itself (no copy): `text` must outlive `counted`. RtlInitUnicodeString is
// looked up on every call.
Common::Error InitUnicodeString(UNICODE_STRING& counted, const std::wstring& text);

// Enables a privilege in the process token.
Common::Error EnableProcessPrivilege(const wchar_t* privilegeName);

// Enables "SeSystemEnvironmentPrivilege"; 0x12F0002 "Failed to obtain privilege '{0}'." when it cannot.
Common::Error ObtainPriviledge();

}  // namespace Uefi
