// The Windows backend's rules over the three native firmware-variable routines of ntdll. The routines sit
// behind an interface so that these rules (lookup and privilege order, buffer growing, status mapping, the
// walk over the boot-entry list) are the same code on Windows and in tests everywhere.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "core/grub_parser/uefi_bootvars/variable.h"

namespace Uefi {

class NativeRoutines {
public:
    virtual ~NativeRoutines() = default;
    // Each looks its routine up in "ntdll.dll" on first use and keeps it for the process; 0x12F0001 when
    // it is missing.
    virtual Common::Error FindQueryRoutine() = 0;  // NtQuerySystemEnvironmentValueEx
    virtual Common::Error FindSetRoutine() = 0;    // NtSetSystemEnvironmentValueEx
    virtual Common::Error FindEnumerateRoutine() = 0;  // NtEnumerateBootEntries
    // Enables "SeSystemEnvironmentPrivilege" for the process; 0x12F0002 when it cannot.
    virtual Common::Error ObtainPrivilege() = 0;

    // The calls themselves. A returned error is one of preparing the native name or GUID; otherwise
    // `status` is the routine's NT status. `length` is in/out as for the routine.
    virtual Common::Error Query(const std::wstring& name, const Guid& vendor, std::span<std::uint8_t> buffer,
                                std::uint32_t& length, std::uint32_t& attributes, std::uint32_t& status) = 0;
    // Empty data goes to the routine as a null pointer and length 0, which deletes the variable.
    virtual Common::Error Set(const std::wstring& name, const Guid& vendor, std::span<const std::uint8_t> data,
                              std::uint32_t attributes, std::uint32_t& status) = 0;
    virtual std::uint32_t Enumerate(std::span<std::uint8_t> buffer, std::uint32_t& length) = 0;
};

using NativeRoutinesPtr = std::shared_ptr<NativeRoutines>;

class WindowsVariable final : public Variable {
public:
    WindowsVariable(NativeRoutinesPtr routines, const Guid& vendor, std::wstring name, std::uint32_t attributes)
        : Variable(vendor, std::move(name), attributes), routines_(std::move(routines)) {}
    Common::Error Save() override;

protected:
    Common::Error ReadValue(std::vector<std::uint8_t>& data, std::uint32_t& attributes) override;

private:
    NativeRoutinesPtr routines_;
};

class BootEntriesEnumeratorWindows {
public:
    explicit BootEntriesEnumeratorWindows(NativeRoutinesPtr routines) : routines_(std::move(routines)) {}
    Common::Error EnumerateBootEntryIds(std::vector<std::uint16_t>& ids);

private:
    NativeRoutinesPtr routines_;
};

class WindowsVariableStore final : public VariableStore {
public:
    explicit WindowsVariableStore(NativeRoutinesPtr routines) : routines_(std::move(routines)) {}
    // Windows always lets a process ask; whether the firmware answers is another matter.
    bool BootVariablesAllowed() override { return true; }
    VariablePtr CreateVariable(const Guid& vendor, std::wstring name, std::uint32_t attributes) override;
    Common::Error EnumerateBootEntryIds(std::vector<std::uint16_t>& ids) override;

private:
    NativeRoutinesPtr routines_;
};

// The entry ids of the record list that NtEnumerateBootEntries wrote: each record is a 32-bit offset to
// the next record followed by a BOOT_ENTRY (Version, Length, Id, ...). A next-offset of 0 marks the last
// record, as in the system's other lists: the routine may report more bytes than its records fill, and a
// zeroed tail walked as records would invent Boot0000 entries. The walk also stops at a record that does
// not fit in what is left (its Length too short for Version, Length and Id, or past the end) and at an
// offset that points past the end.
std::vector<std::uint16_t> ParseBootEntryList(std::span<const std::uint8_t> bytes);

}  // namespace Uefi
