// Reads and selection moves of the disk report.
#include "core/da_api/disks_report_access.h"

#include <set>
#include <string_view>

#include "core/common/log.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/size_string.h"

namespace DaApi::DisksReport {
namespace {

// Texts are read up to their terminator, but never further than this: a damaged or missing terminator
// must not walk through memory.
constexpr std::size_t kMaxTextLength = 64 * 1024;

// Logs the first failure of each property only: an interface that lacks one would otherwise add a line for
// every object of every pass.
void LogAbsent(PropertyId id, const Common::ErrorException& e) {
    static std::set<PropertyId> logged;
    if (logged.insert(id).second) {
        Common::Log::WriteError(Common::Log::kDebug, "Disk report: property " + std::to_string(id) + " reads as absent: ",
                                e.error());
    }
}

template <typename Read>
Value ReadOrZero(PropertyId id, Read&& read) {
    try {
        return read();
    } catch (const Common::ErrorException& e) {
        LogAbsent(id, e);
        return 0;
    }
}

template <typename Char>
std::basic_string<Char> TextAt(const Char* text) {
    if (!text) return {};
    std::size_t length = 0;
    while (length < kMaxTextLength && text[length] != 0) ++length;
    return std::basic_string<Char>(text, length);
}

std::vector<std::uint8_t> BytesAt(Value pointer, std::size_t length) {
    if (pointer == 0) return {};
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(static_cast<std::uintptr_t>(pointer));
    return std::vector<std::uint8_t>(bytes, bytes + length);
}

template <typename Char>
std::string NarrowText(std::basic_string_view<Char> text) {
    std::string narrow;
    narrow.reserve(text.size());
    for (Char c : text) narrow += static_cast<std::uint32_t>(c) < 256 ? static_cast<char>(c) : '?';
    return narrow;
}

}  // namespace

Value Get(PropertyId id) {
    return ReadOrZero(id, [&] { return DaGetProperty(id); });
}

Value Get1(PropertyId id, Value parameter) {
    return ReadOrZero(id, [&] { return DaGetProperty1(id, parameter); });
}

Value GetFs(PropertyId id) {
    return ReadOrZero(id, [&] { return GetFsProperty(id); });
}

std::string GetText8(PropertyId id) { return TextAt(Text8(Get(id))); }

std::string GetText8(PropertyId id, Value parameter) { return TextAt(Text8(Get1(id, parameter))); }

std::u16string GetText16(PropertyId id) { return TextAt(Text16(Get(id))); }

std::vector<std::uint8_t> GetFsBytes(PropertyId id, std::size_t length) { return BytesAt(GetFs(id), length); }

std::vector<std::uint8_t> GetBytes(PropertyId id, std::size_t length) { return BytesAt(Get(id), length); }

bool Set(PropertyId id, Value value) {
    try {
        DaSetProperty(id, value);
        return true;
    } catch (const Common::ErrorException& e) {
        Common::Log::WriteError(Common::Log::kWarning,
                                "Disk report: setting property " + std::to_string(id) + " to " + std::to_string(value) +
                                    " failed: ",
                                e.error());
        return false;
    }
}

void Drop(PropertyId id) {
    try {
        DaSetProperty(id, 0);
    } catch (const Common::ErrorException&) {
        // Nothing of that level was selected.
    }
}

Value SectorSize() { return Get(Prop::kLogicalSectorSize); }

std::string Size(Value count, Value unit) { return SizeString(count, unit != 0 ? unit : SectorSize()); }

std::string Narrow(std::u16string_view text) { return NarrowText(text); }

std::string Narrow(std::wstring_view text) { return NarrowText(text); }

}  // namespace DaApi::DisksReport
