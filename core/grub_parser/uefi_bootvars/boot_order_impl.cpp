// The boot order read from the "BootOrder" variable.
#include "core/grub_parser/uefi_bootvars/boot_order_impl.h"

#include "core/common/log.h"
#include "core/grub_parser/uefi_bootvars/boot_entries_impl.h"

namespace Uefi {

std::vector<std::uint16_t> DecodeBootOrder(std::span<const std::uint8_t> data) {
    std::vector<std::uint16_t> numbers;
    numbers.reserve(data.size() / 2);
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        numbers.push_back(static_cast<std::uint16_t>(data[i] | data[i + 1] << 8));
    }
    return numbers;
}

Common::Error GetBootOrder(VariableStore& store, std::shared_ptr<BootOrder>& order) {
    VariablePtr variable = store.CreateVariable(kEfiGlobalVariable, L"BootOrder", kBootVariableAttributes);
    std::span<const std::uint8_t> data;
    if (Common::Error error = variable->GetData(data); error.Failed()) return error;
    if (data.size() % 2 != 0) {
        Common::Log::Warning("BootOrder holds " + std::to_string(data.size()) +
                             " bytes, an odd count: its last byte is ignored.");
    }
    std::vector<BootEntryPtr> entries;
    for (std::uint16_t number : DecodeBootOrder(data)) entries.push_back(BootEntryImpl::Create(store, number));
    order = std::make_shared<BootOrderImpl>(std::move(entries));
    return {};
}

}  // namespace Uefi
