// The text of "uefi_vars.txt".
#include "core/grub_parser/uefi_bootvars/bootvars_report.h"

#include <cstdio>
#include <vector>

#include "core/common/log.h"
#include "core/grub_parser/uefi_bootvars/boot_order.h"

namespace Uefi {
namespace {

constexpr std::string_view kSeparator = "\r\n\r\n***\r\n\r\n";
constexpr std::string_view kUnknown = "Unknown";

// "<label> <value>\r\n", the value "Unknown" when its getter failed.
template <typename Value, typename Getter, typename Format>
std::string FieldLine(std::string_view label, Getter&& getter, Format&& format) {
    Value value{};
    std::string text = getter(value).Succeeded() ? format(value) : std::string(kUnknown);
    return LimitFormattedLine(std::string(label) + " " + text) + "\r\n";
}

void WriteEntries(std::ostream& out, VariableStore& store) {
    std::shared_ptr<BootEntriesEnumerator> enumerator;
    if (Common::Error error = GetBootEntriesEnumerator(store, enumerator); error.Failed()) {
        Common::Log::WriteError(Common::Log::kWarning, "The firmware's boot entries cannot be listed: ", error);
        out << "Could not obtain Boot Entries Enumerator, UEFI is not enabled";
        return;
    }
    out << "Boot variables information:" << kSeparator;
    bool first = true;
    for (const BootEntryPtr& entry : *enumerator) {
        if (!first) out << kSeparator;
        first = false;
        std::string text;
        if (Common::Error error = BuildBootEntryText(*entry, text); error.Failed()) {
            Common::Log::WriteError(Common::Log::kWarning,
                                    "Boot entry " + std::to_string(entry->GetNumber()) + " cannot be shown: ", error);
            out << LimitFormattedLine("Unable to obtain string representation for entry #" +
                                      std::to_string(entry->GetNumber()));
        } else {
            out << text;
        }
    }
}

void WriteBootOrder(std::ostream& out, VariableStore& store) {
    std::shared_ptr<BootOrder> order;
    if (Common::Error error = GetBootOrder(store, order); error.Failed()) {
        Common::Log::WriteError(Common::Log::kWarning, "The firmware's boot order cannot be read: ", error);
        out << "Could not obtain Boot Order, UEFI is not enabled";
        return;
    }
    out << "Boot variables in Boot Order:" << kSeparator;
    bool first = true;
    for (const BootEntryPtr& entry : *order) {
        if (!first) out << ' ';
        first = false;
        // Decimal, unlike the hexadecimal of the variable names.
        out << LimitFormattedLine(std::to_string(entry->GetNumber()));
    }
    out << kSeparator;
}

}  // namespace

std::string NarrowToLowBytes(std::u16string_view text) {
    std::string narrow;
    narrow.reserve(text.size());
    for (char16_t unit : text) narrow += static_cast<char>(unit & 0xFF);
    return narrow;
}

std::string LimitFormattedLine(std::string line) {
    if (line.size() > kFormattedLineLimit) line.resize(kFormattedLineLimit);
    return line;
}

std::string FormatPartitionGuid(const Guid& guid) {
    char text[37];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(guid.data1), static_cast<unsigned>(guid.data2),
                  static_cast<unsigned>(guid.data3), guid.data4[0], guid.data4[1], guid.data4[2], guid.data4[3],
                  guid.data4[4], guid.data4[5], guid.data4[6], guid.data4[7]);
    return text;
}

Common::Error BuildBootEntryText(BootEntry& entry, std::string& text) {
    std::string block = LimitFormattedLine("---- " + std::to_string(entry.GetNumber()) + " ----") + "\r\n";

    std::shared_ptr<LoadOptions> options;
    if (Common::Error error = entry.GetLoadOptions(options); error.Failed()) return error;
    auto narrow = [](const std::u16string& value) { return NarrowToLowBytes(value); };
    auto decimal = [](auto value) { return std::to_string(value); };
    block += FieldLine<std::u16string>("Description:", [&](auto& v) { return options->GetDescription(v); }, narrow);
    block += FieldLine<std::u16string>("Path:", [&](auto& v) { return options->GetPath(v); }, narrow);
    block += FieldLine<Guid>("GUID:", [&](auto& v) { return options->GetPartitionGUID(v); }, FormatPartitionGuid);
    block += FieldLine<std::uint32_t>(
        "Partition number:", [&](auto& v) { return options->GetPartitionNumber(v); },
        [](std::uint32_t number) { return std::to_string(static_cast<std::uint16_t>(number)); });
    block += FieldLine<std::uint64_t>("Begin:", [&](auto& v) { return options->GetPartitionStart(v); }, decimal);
    block += FieldLine<std::uint64_t>("Partition Size:", [&](auto& v) { return options->GetPartitionSize(v); }, decimal);

    std::vector<std::uint8_t> raw;
    if (Common::Error error = entry.GetRawData(raw); error.Failed()) return error;
    if (!raw.empty()) {
        block += "Hex dump\r\n";
        static constexpr char kDigits[] = "0123456789ABCDEF";
        for (std::uint8_t byte : raw) {
            block += kDigits[byte >> 4];
            block += kDigits[byte & 0x0F];
            block += ' ';
        }
    }
    block += "\r\n";
    text = std::move(block);
    return {};
}

Common::Error WriteUefiBootVariablesReport(std::ostream* out, VariableStore& store) {
    if (!out) return {};
    *out << (store.BootVariablesAllowed() ? "Boot variables are allowed on this system"
                                          : "Boot variables are not allowed on this system")
         << kSeparator;
    WriteEntries(*out, store);
    WriteBootOrder(*out, store);
    return {};
}

}  // namespace Uefi
