// Scrubbing of settings files: works on the bytes in place, so that nothing else changes and a file takes
// no more memory than its own size.
#include "products/imager/system_report/settings_file.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace SystemReport {
namespace {

constexpr std::array<std::string_view, 2> kSecretKeys = {"OBPassword", "OBSessionPassword"};
constexpr char32_t kByteOrderMark = 0xFEFF;

// One way of reading the bytes as code units.
struct Reading {
    std::size_t first;  // byte where the first unit starts
    std::size_t width;  // bytes per unit
    bool bigEndian;
};
// 16-bit text that starts at an odd byte is seen by the reading of the other byte order (its units are the
// same, shifted by one byte), and a reading from byte 1 would see the text of byte 0 shifted the same way.
constexpr std::array<Reading, 3> kReadings = {{{0, 1, false}, {0, 2, false}, {0, 2, true}}};

using Range = std::pair<std::size_t, std::size_t>;  // [begin, end) in bytes

class Units {
public:
    Units(std::string_view bytes, Reading reading) : bytes_(bytes), reading_(reading) {}
    std::size_t End() const {
        if (bytes_.size() < reading_.first) return reading_.first;
        return reading_.first + (bytes_.size() - reading_.first) / reading_.width * reading_.width;
    }
    std::size_t Width() const { return reading_.width; }
    char32_t At(std::size_t byte) const {
        const auto b = [&](std::size_t i) { return static_cast<unsigned char>(bytes_[i]); };
        if (reading_.width == 1) return b(byte);
        return reading_.bigEndian ? (b(byte) << 8 | b(byte + 1)) : (b(byte + 1) << 8 | b(byte));
    }

private:
    std::string_view bytes_;
    Reading reading_;
};

char32_t AsciiLower(char32_t c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; }
bool IsBlank(char32_t c) { return c == ' ' || c == '\t'; }

// [begin, end) is one line without its line end.
bool IsSecretLine(const Units& units, std::size_t begin, std::size_t end) {
    const std::size_t step = units.Width();
    std::size_t at = begin;
    const auto skipBlanks = [&] {
        while (at < end && IsBlank(units.At(at))) at += step;
    };
    skipBlanks();
    char32_t quote = 0;
    if (at < end && (units.At(at) == '"' || units.At(at) == '\'')) {
        quote = units.At(at);
        at += step;
    }
    const std::size_t keyStart = at;
    for (std::string_view key : kSecretKeys) {
        at = keyStart;
        bool same = true;
        for (char k : key) {
            if (at >= end || AsciiLower(units.At(at)) != AsciiLower(static_cast<unsigned char>(k))) {
                same = false;
                break;
            }
            at += step;
        }
        if (!same) continue;
        if (quote != 0) {
            if (at >= end || units.At(at) != quote) continue;
            at += step;
        }
        skipBlanks();
        if (at < end && (units.At(at) == '=' || units.At(at) == ':')) return true;
    }
    return false;
}

void FindSecretLines(const Units& units, std::size_t first, std::vector<Range>& found) {
    const std::size_t step = units.Width();
    const std::size_t end = units.End();
    // A byte-order mark (U+FEFF as a unit, or EF BB BF as bytes) stays; the first line starts after it.
    std::size_t start = first;
    if (start < end && units.At(start) == kByteOrderMark) {
        start += step;
    } else if (step == 1 && end - start >= 3 && units.At(start) == 0xEF && units.At(start + 1) == 0xBB &&
               units.At(start + 2) == 0xBF) {
        start += 3;
    }
    while (start < end) {
        std::size_t lineEnd = start;
        while (lineEnd < end && units.At(lineEnd) != '\n' && units.At(lineEnd) != '\r') lineEnd += step;
        std::size_t next = lineEnd;
        if (next < end) {
            const bool carriageReturn = units.At(next) == '\r';
            next += step;
            if (carriageReturn && next < end && units.At(next) == '\n') next += step;
        }
        if (IsSecretLine(units, start, lineEnd)) found.emplace_back(start, next);
        start = next;
    }
}

}  // namespace

bool IsSettingsFile(const std::filesystem::path& path) {
    // The native name, as bytes or UTF-16 units: a name that is not valid in any encoding still counts.
    const auto& name = path.native();
    constexpr std::string_view kExtension = ".ini";
    if (name.size() < kExtension.size()) return false;
    return std::equal(kExtension.begin(), kExtension.end(), name.end() - kExtension.size(),
                      [](char e, auto c) { return AsciiLower(static_cast<char32_t>(c)) == static_cast<char32_t>(e); });
}

void RemoveSecretSettings(std::string& text) {
    std::vector<Range> found;
    for (const Reading& reading : kReadings) FindSecretLines(Units(text, reading), reading.first, found);
    if (found.empty()) return;
    std::sort(found.begin(), found.end());
    std::size_t kept = 0;  // bytes of the result so far
    std::size_t from = 0;  // first byte not yet copied or dropped
    for (const auto& [begin, end] : found) {
        if (begin > from) {
            std::copy(text.begin() + static_cast<std::ptrdiff_t>(from), text.begin() + static_cast<std::ptrdiff_t>(begin),
                      text.begin() + static_cast<std::ptrdiff_t>(kept));
            kept += begin - from;
        }
        from = std::max(from, end);
    }
    std::copy(text.begin() + static_cast<std::ptrdiff_t>(from), text.end(), text.begin() + static_cast<std::ptrdiff_t>(kept));
    text.resize(kept + (text.size() - from));
}

}  // namespace SystemReport
