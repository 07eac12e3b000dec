// The firmware variable's read-once and save rules, shared by every platform.
#include "core/grub_parser/uefi_bootvars/variable.h"

#include <cwchar>

#include "core/grub_parser/uefi_bootvars/uefi_errors.h"

namespace Uefi {

Common::Error Variable::Load() {
    if (loaded_) return {};
    std::vector<std::uint8_t> data;
    std::uint32_t attributes = 0;
    if (Common::Error error = ReadValue(data, attributes); error.Failed()) return error;
    attributes_ = attributes;
    data_ = std::move(data);
    loaded_ = true;
    return {};
}

bool Variable::Exists() { return Load().Code() != Codes::kNotFound; }

Common::Error Variable::GetData(std::span<const std::uint8_t>& data) {
    if (Common::Error error = Load(); error.Failed()) return error;
    data = data_;
    return {};
}

Common::Error Variable::SetData(std::span<const std::uint8_t> bytes) {
    data_.assign(bytes.begin(), bytes.end());
    loaded_ = true;
    return Save();
}

Common::Error Variable::Remove() {
    data_.clear();
    loaded_ = true;
    return Save();
}

std::wstring BootEntryVariableName(std::uint16_t number) {
    wchar_t name[9];
    std::swprintf(name, sizeof name / sizeof name[0], L"Boot%04X", static_cast<unsigned>(number));
    return name;
}

std::optional<std::uint16_t> ParseBootEntryVariableName(std::wstring_view name) {
    if (name.size() != 8 || name.substr(0, 4) != L"Boot") return std::nullopt;
    std::uint16_t number = 0;
    for (wchar_t c : name.substr(4)) {
        unsigned digit;
        if (c >= L'0' && c <= L'9') digit = static_cast<unsigned>(c - L'0');
        else if (c >= L'A' && c <= L'F') digit = static_cast<unsigned>(c - L'A' + 10);
        else return std::nullopt;
        number = static_cast<std::uint16_t>(number << 4 | digit);
    }
    return number;
}

}  // namespace Uefi
