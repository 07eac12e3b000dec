// The firmware boot order: the "BootOrder" variable's list of boot entry numbers.
#pragma once

#include <memory>
#include <vector>

#include "core/common/error.h"
#include "core/grub_parser/uefi_bootvars/boot_entries.h"
#include "core/grub_parser/uefi_bootvars/variable.h"

namespace Uefi {

class BootOrder {
public:
    virtual ~BootOrder() = default;
    // One entry per stored number, in stored order; an entry whose variable is missing is still listed.
    virtual const std::vector<BootEntryPtr>& Entries() const = 0;
    auto begin() const { return Entries().begin(); }
    auto end() const { return Entries().end(); }
};

// Reads "BootOrder" (attributes 7) under the global-variable GUID.
Common::Error GetBootOrder(VariableStore& store, std::shared_ptr<BootOrder>& order);

}  // namespace Uefi
