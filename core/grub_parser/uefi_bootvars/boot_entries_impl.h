// A boot entry over its Boot#### variable, and the enumerator over a list of entry numbers.
#pragma once

#include "core/grub_parser/uefi_bootvars/boot_entries.h"

namespace Uefi {

class BootEntryImpl final : public BootEntry {
public:
    BootEntryImpl(std::uint16_t number, VariablePtr variable) : number_(number), variable_(std::move(variable)) {}
    // The entry of that number: the variable "Boot####" under the global-variable GUID.
    static BootEntryPtr Create(VariableStore& store, std::uint16_t number);

    std::uint16_t GetNumber() const override { return number_; }
    Common::Error GetLoadOptions(std::shared_ptr<LoadOptions>& options) override;
    Common::Error GetRawData(std::vector<std::uint8_t>& data) override;

private:
    std::uint16_t number_;
    VariablePtr variable_;
};

class BootEntriesEnumeratorImpl final : public BootEntriesEnumerator {
public:
    explicit BootEntriesEnumeratorImpl(std::vector<BootEntryPtr> entries) : entries_(std::move(entries)) {}
    const std::vector<BootEntryPtr>& Entries() const override { return entries_; }

private:
    std::vector<BootEntryPtr> entries_;
};

}  // namespace Uefi
