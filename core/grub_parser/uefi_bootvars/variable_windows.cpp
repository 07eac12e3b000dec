// Firmware variables on Windows: the three native routines of ntdll, found at run time.
#include <algorithm>

#include "core/grub_parser/uefi_bootvars/nt_variable.h"
#include "core/grub_parser/uefi_bootvars/win_helpers.h"

namespace Uefi {
namespace {

using QueryRoutine = NTSTATUS(NTAPI*)(PUNICODE_STRING, LPGUID, PVOID, PULONG, PULONG);
using SetRoutine = NTSTATUS(NTAPI*)(PUNICODE_STRING, LPGUID, PVOID, ULONG, ULONG);
using EnumerateRoutine = NTSTATUS(NTAPI*)(PVOID, PULONG);

constexpr const wchar_t* kNtdll = L"ntdll.dll";

// Process-wide slots, each written once its lookup succeeded. No lock: the subsystem is used from one
// thread (the report item's).
QueryRoutine g_query = nullptr;
SetRoutine g_set = nullptr;
EnumerateRoutine g_enumerate = nullptr;

template <typename Routine>
Common::Error FindOnce(const char* procedureName, Routine& slot) {
    if (slot) return {};
    Routine found = nullptr;
    if (Common::Error error = GetPointerToFunction(kNtdll, procedureName, found); error.Failed()) return error;
    slot = found;
    return {};
}

GUID ToNativeGuid(const Guid& guid) {
    GUID native;
    native.Data1 = guid.data1;
    native.Data2 = guid.data2;
    native.Data3 = guid.data3;
    std::copy(guid.data4.begin(), guid.data4.end(), native.Data4);
    return native;
}

class NtdllRoutines final : public NativeRoutines {
public:
    Common::Error FindQueryRoutine() override { return FindOnce("NtQuerySystemEnvironmentValueEx", g_query); }
    Common::Error FindSetRoutine() override { return FindOnce("NtSetSystemEnvironmentValueEx", g_set); }
    Common::Error FindEnumerateRoutine() override { return FindOnce("NtEnumerateBootEntries", g_enumerate); }
    Common::Error ObtainPrivilege() override { return ObtainPriviledge(); }

    Common::Error Query(const std::wstring& name, const Guid& vendor, std::span<std::uint8_t> buffer,
                        std::uint32_t& length, std::uint32_t& attributes, std::uint32_t& status) override {
        UNICODE_STRING nativeName;
        if (Common::Error error = InitUnicodeString(nativeName, name); error.Failed()) return error;
        GUID nativeGuid = ToNativeGuid(vendor);
        ULONG nativeLength = length;
        ULONG nativeAttributes = 0;
        status = static_cast<std::uint32_t>(g_query(&nativeName, &nativeGuid, buffer.data(), &nativeLength, &nativeAttributes));
        length = nativeLength;
        attributes = nativeAttributes;
        return {};
    }

    Common::Error Set(const std::wstring& name, const Guid& vendor, std::span<const std::uint8_t> data,
                      std::uint32_t attributes, std::uint32_t& status) override {
        UNICODE_STRING nativeName;
        if (Common::Error error = InitUnicodeString(nativeName, name); error.Failed()) return error;
        GUID nativeGuid = ToNativeGuid(vendor);
        // The routine does not write through the value pointer; its prototype just is not const.
        PVOID value = data.empty() ? nullptr : const_cast<std::uint8_t*>(data.data());
        status = static_cast<std::uint32_t>(
            g_set(&nativeName, &nativeGuid, value, static_cast<ULONG>(data.size()), attributes));
        return {};
    }

    std::uint32_t Enumerate(std::span<std::uint8_t> buffer, std::uint32_t& length) override {
        ULONG nativeLength = length;
        auto status = static_cast<std::uint32_t>(g_enumerate(buffer.data(), &nativeLength));
        length = nativeLength;
        return status;
    }
};

}  // namespace

VariableStorePtr MakeSystemVariableStore() {
    return std::make_shared<WindowsVariableStore>(std::make_shared<NtdllRoutines>());
}

}  // namespace Uefi
