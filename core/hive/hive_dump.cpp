// The registry key-tree dump.
#include "core/hive/hive_dump.h"

#include <cstdint>
#include <cstdio>

#include "core/common/log.h"
#include "core/common/strings.h"

namespace Hive {
namespace {

// A BCD store is four levels deep (root, Objects, an object, Elements, an element); a looping tree would
// otherwise repeat until memory runs out.
constexpr int kMaxDepth = 16;
constexpr std::size_t kMaxKeys = 20000;

std::string Narrow(std::wstring_view text) {
    std::string narrow;
    narrow.reserve(text.size());
    for (wchar_t c : text) narrow += static_cast<std::uint32_t>(c) < 256 ? static_cast<char>(c) : '?';
    return narrow;
}

std::string NarrowUtf8(std::string_view text) { return Narrow(Common::Utf8ToWide(text)); }

// The UTF-16LE strings of REG_SZ / REG_MULTI_SZ data, up to the terminating empty string (or the end when
// the data lacks it; an odd last byte is ignored).
std::vector<std::string> Utf16Strings(const std::vector<std::uint8_t>& data) {
    std::vector<std::string> strings;
    std::wstring current;
    bool ended = true;
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        char16_t c = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
        if (c == 0) {
            if (current.empty()) break;
            strings.push_back(Narrow(current));
            current.clear();
            ended = true;
            continue;
        }
        current += static_cast<wchar_t>(c);
        ended = false;
    }
    if (!ended) strings.push_back(Narrow(current));
    return strings;
}

std::uint64_t LittleEndian(const std::vector<std::uint8_t>& data, std::size_t width) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < width && i < data.size(); ++i) number |= std::uint64_t{data[i]} << (8 * i);
    return number;
}

struct Walk {
    std::string& out;
    std::size_t keys = 0;
    bool cut = false;

    void Key(HiveKey& key, int depth) {
        if (++keys > kMaxKeys || depth > kMaxDepth) {
            if (!cut) {
                Common::Log::Warning("The registry key tree is deeper or larger than a boot store can be (a loop?): "
                                     "the dump stops at " + std::to_string(kMaxKeys) + " keys or depth " +
                                     std::to_string(kMaxDepth) + ".");
            }
            cut = true;
            return;
        }
        std::string indent(2 * static_cast<std::size_t>(depth), ' ');
        std::string name = NarrowUtf8(key.Name());
        out += indent + name + "\r\n";
        std::vector<HiveValue> values;
        if (Common::Error error = key.Values(values); error.Failed())
            Common::Log::WriteError(Common::Log::kWarning, "The values of the key '" + name + "' are left out: ", error);
        for (const HiveValue& value : values) out += indent + "  " + NarrowUtf8(value.name) + ": " + ValueText(value) + "\r\n";
        std::vector<std::unique_ptr<HiveKey>> subKeys;
        if (Common::Error error = key.SubKeys(subKeys); error.Failed())
            Common::Log::WriteError(Common::Log::kWarning, "The sub-keys of the key '" + name + "' are left out: ", error);
        for (auto& subKey : subKeys) {
            if (cut) return;
            Key(*subKey, depth + 1);
        }
    }
};

}  // namespace

std::string ValueText(const HiveValue& value) {
    char number[24];
    switch (value.type) {
        case kBinary: {
            std::string text;
            text.reserve(value.data.size() * 3);
            for (std::uint8_t byte : value.data) {
                std::snprintf(number, sizeof number, "%02X ", byte);
                text += number;
            }
            return text;
        }
        case kString:
        case kExpandString: {
            std::vector<std::string> strings = Utf16Strings(value.data);
            return strings.empty() ? std::string() : strings.front();
        }
        case kMultiString: {
            std::string text;
            for (const std::string& string : Utf16Strings(value.data)) text += (text.empty() ? "" : " ") + string;
            return text;
        }
        case kQword:
            std::snprintf(number, sizeof number, "%llu", static_cast<unsigned long long>(LittleEndian(value.data, 8)));
            return number;
        case kDword:
            std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(LittleEndian(value.data, 4)));
            return number;
        default:
            return {};
    }
}

void DumpKeyTree(HiveKey& root, std::string& out) { Walk{out}.Key(root, 0); }

}  // namespace Hive
