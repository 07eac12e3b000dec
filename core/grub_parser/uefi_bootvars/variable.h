// Firmware variables: the abstract variable with its read-once and save rules, and the store that makes
// variables and lists boot entries on this platform.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "core/grub_parser/uefi_bootvars/guid.h"

namespace Uefi {

// EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS.
inline constexpr std::uint32_t kBootVariableAttributes = 7;

class Variable {
public:
    Variable(const Guid& vendor, std::wstring name, std::uint32_t attributes)
        : vendor_(vendor), name_(std::move(name)), attributes_(attributes) {}
    virtual ~Variable() = default;

    // Reads the value from the firmware, once per object: later calls succeed without asking again.
    // A failed read leaves the variable unloaded and its data unchanged.
    virtual Common::Error Load();
    // Writes the value (an empty value deletes the variable). Fails with 0x12F0003 and writes nothing
    // while the variable holds no value, i.e. was neither read nor given one. Each backend makes that
    // error itself, so that it names the backend's Save as its function.
    virtual Common::Error Save() = 0;

    // False only when Load fails with "not found": a variable that could not be read for another reason
    // is not to be taken as absent (and recreated).
    bool Exists();
    // Loads, then gives the data; on failure `data` is left as it was.
    Common::Error GetData(std::span<const std::uint8_t>& data);
    // Giving a value marks the variable loaded, which is how a variable new to the firmware is created.
    Common::Error SetData(std::span<const std::uint8_t> bytes);
    Common::Error Remove();

    const Guid& VendorGuid() const { return vendor_; }
    const std::wstring& Name() const { return name_; }
    std::uint32_t Attributes() const { return attributes_; }
    bool Loaded() const { return loaded_; }

protected:
    // The platform's read; called by Load only while the variable is not loaded.
    virtual Common::Error ReadValue(std::vector<std::uint8_t>& data, std::uint32_t& attributes) = 0;
    // The value that Save writes.
    const std::vector<std::uint8_t>& Data() const { return data_; }

private:
    bool loaded_ = false;
    std::vector<std::uint8_t> data_;
    Guid vendor_;
    std::wstring name_;
    std::uint32_t attributes_;
};

using VariablePtr = std::shared_ptr<Variable>;

// The platform's firmware-variable interface.
class VariableStore {
public:
    virtual ~VariableStore() = default;
    // Whether this system lets boot variables be accessed at all.
    virtual bool BootVariablesAllowed() = 0;
    virtual VariablePtr CreateVariable(const Guid& vendor, std::wstring name, std::uint32_t attributes) = 0;
    // The firmware's boot entry numbers ("Boot####"), in the order the platform gives them.
    virtual Common::Error EnumerateBootEntryIds(std::vector<std::uint16_t>& ids) = 0;
};

using VariableStorePtr = std::shared_ptr<VariableStore>;

// The store of this platform: the native routines on Windows, efivarfs elsewhere.
VariableStorePtr MakeSystemVariableStore();

// "Boot" and the number in four upper-case hexadecimal digits: "Boot0000" ... "BootFFFF".
std::wstring BootEntryVariableName(std::uint16_t number);
// The number of a name of exactly that form; nothing for any other name (the UEFI standard writes
// the digits in upper case, and firmware compares names exactly).
std::optional<std::uint16_t> ParseBootEntryVariableName(std::wstring_view name);

}  // namespace Uefi
