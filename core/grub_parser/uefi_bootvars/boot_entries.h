// Firmware boot entries (Boot#### variables) and the enumerator that lists them.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/common/error.h"
#include "core/grub_parser/uefi_bootvars/load_options.h"
#include "core/grub_parser/uefi_bootvars/variable.h"

namespace Uefi {

class BootEntry {
public:
    virtual ~BootEntry() = default;
    virtual std::uint16_t GetNumber() const = 0;
    // The entry's value decoded; reads the variable on first use.
    virtual Common::Error GetLoadOptions(std::shared_ptr<LoadOptions>& options) = 0;
    // The whole value of the variable, as the firmware holds it.
    virtual Common::Error GetRawData(std::vector<std::uint8_t>& data) = 0;
};

using BootEntryPtr = std::shared_ptr<BootEntry>;

class BootEntriesEnumerator {
public:
    virtual ~BootEntriesEnumerator() = default;
    virtual const std::vector<BootEntryPtr>& Entries() const = 0;
    auto begin() const { return Entries().begin(); }
    auto end() const { return Entries().end(); }
};

// One entry object for every boot entry number the store lists, in the store's order. Fails when the
// store cannot list them (no UEFI, privilege refused, routine missing).
Common::Error GetBootEntriesEnumerator(VariableStore& store, std::shared_ptr<BootEntriesEnumerator>& enumerator);

}  // namespace Uefi
