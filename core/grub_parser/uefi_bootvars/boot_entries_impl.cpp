// Boot entries over their variables, and the enumerator.
#include "core/grub_parser/uefi_bootvars/boot_entries_impl.h"

#include "core/grub_parser/uefi_bootvars/load_options_impl.h"

namespace Uefi {

BootEntryPtr BootEntryImpl::Create(VariableStore& store, std::uint16_t number) {
    return std::make_shared<BootEntryImpl>(
        number, store.CreateVariable(kEfiGlobalVariable, BootEntryVariableName(number), kBootVariableAttributes));
}

Common::Error BootEntryImpl::GetLoadOptions(std::shared_ptr<LoadOptions>& options) {
    std::span<const std::uint8_t> data;
    if (Common::Error error = variable_->GetData(data); error.Failed()) return error;
    auto decoded = std::make_shared<LoadOptionsImpl>();
    ByteReader reader(data);
    if (Common::Error error = decoded->Fill(reader); error.Failed()) return error;
    options = std::move(decoded);
    return {};
}

Common::Error BootEntryImpl::GetRawData(std::vector<std::uint8_t>& data) {
    std::span<const std::uint8_t> bytes;
    if (Common::Error error = variable_->GetData(bytes); error.Failed()) return error;
    data.assign(bytes.begin(), bytes.end());
    return {};
}

Common::Error GetBootEntriesEnumerator(VariableStore& store, std::shared_ptr<BootEntriesEnumerator>& enumerator) {
    std::vector<std::uint16_t> ids;
    if (Common::Error error = store.EnumerateBootEntryIds(ids); error.Failed()) return error;
    std::vector<BootEntryPtr> entries;
    entries.reserve(ids.size());
    for (std::uint16_t id : ids) entries.push_back(BootEntryImpl::Create(store, id));
    enumerator = std::make_shared<BootEntriesEnumeratorImpl>(std::move(entries));
    return {};
}

}  // namespace Uefi
