// The boot order decoded from the bytes of the "BootOrder" variable.
#pragma once

#include <cstdint>
#include <span>

#include "core/grub_parser/uefi_bootvars/boot_order.h"

namespace Uefi {

class BootOrderImpl final : public BootOrder {
public:
    explicit BootOrderImpl(std::vector<BootEntryPtr> entries) : entries_(std::move(entries)) {}
    const std::vector<BootEntryPtr>& Entries() const override { return entries_; }

private:
    std::vector<BootEntryPtr> entries_;
};

// The little-endian 16-bit entry numbers of a BootOrder value. An odd last byte belongs to no number and
// is dropped.
std::vector<std::uint16_t> DecodeBootOrder(std::span<const std::uint8_t> data);

}  // namespace Uefi
