// Computer-level facts on Windows: computer name, firmware kind, drive letters and their free space.
#include "core/common/windows_api.h"

#include <string>

#include "core/common/strings.h"
#include "core/da_api/da_api_impl.h"
#include "core/da_api/da_properties.h"

namespace DaApi {
namespace {

bool NativeIs64Bit() {
    if (sizeof(void*) == 8) return true;
    BOOL wow64 = FALSE;
    return IsWow64Process(GetCurrentProcess(), &wow64) && wow64;
}

Value FirmwareKindOfThisMachine() {
    // GetFirmwareType exists from Windows 8 on; before that, reading a firmware variable fails with
    // ERROR_INVALID_FUNCTION on BIOS machines and with another code (usually access or not found) on UEFI.
    using GetFirmwareTypeFn = BOOL(WINAPI*)(int*);
    auto getFirmwareType = reinterpret_cast<GetFirmwareTypeFn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetFirmwareType")));
    bool uefi = false;
    int type = 0;
    if (getFirmwareType && getFirmwareType(&type)) {
        uefi = type == 2;  // FirmwareTypeUefi
    } else {
        GetFirmwareEnvironmentVariableW(L"", L"{00000000-0000-0000-0000-000000000000}", nullptr, 0);
        uefi = GetLastError() != ERROR_INVALID_FUNCTION;
    }
    if (!uefi) return FirmwareKind::kBios;
    return NativeIs64Bit() ? FirmwareKind::kUefiX64 : FirmwareKind::kUefiX86;
}

}  // namespace

ComputerFacts QueryComputerFacts() {
    ComputerFacts facts;
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
    if (GetComputerNameW(name, &length)) facts.name = Common::WideToUtf8(std::wstring_view(name, length));
    facts.osKind = OsKind::kWindows;
    facts.firmwareKind = FirmwareKindOfThisMachine();
    facts.usedDriveLetters = GetLogicalDrives();
    facts.freeBytesOfLetter = [](char letter) -> std::optional<std::uint64_t> {
        const wchar_t root[] = {static_cast<wchar_t>(letter), L':', L'\\', 0};
        ULARGE_INTEGER freeBytes{};
        if (!GetDiskFreeSpaceExW(root, nullptr, nullptr, &freeBytes)) return std::nullopt;
        return freeBytes.QuadPart;
    };
    return facts;
}

}  // namespace DaApi
