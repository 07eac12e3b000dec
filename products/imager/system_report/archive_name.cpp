// Stored names: a strict UTF-8 decoder decides what is kept; everything else is percent-escaped.
#include "products/imager/system_report/archive_name.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "core/common/strings.h"

namespace SystemReport {
namespace {

constexpr std::size_t kMaxStoredName = 255;
constexpr std::size_t kMaxKeptExtension = 32;

// Length of the valid UTF-8 character at the start of `bytes` (no overlong forms, no surrogates, at most
// U+10FFFF), or 0.
std::size_t Utf8CharacterLength(std::string_view bytes) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = at(0);
    if (lead < 0x80) return 1;
    std::size_t length;
    std::uint32_t low;  // smallest code point of that length
    std::uint32_t value;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, low = 0x80, value = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, low = 0x800, value = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, low = 0x10000, value = lead & 0x07;
    } else {
        return 0;
    }
    if (bytes.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((at(i) & 0xC0) != 0x80) return 0;
        value = value << 6 | (at(i) & 0x3F);
    }
    if (value < low || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return 0;
    return length;
}

bool MustEscape(unsigned char c) {
    constexpr std::string_view kRefused = "%\\/:*?\"<>|";
    return c < 0x20 || c == 0x7F || kRefused.find(static_cast<char>(c)) != std::string_view::npos;
}

void AppendEscaped(std::string& out, unsigned char c) {
    constexpr char kHex[] = "0123456789ABCDEF";
    out += '%';
    out += kHex[c >> 4];
    out += kHex[c & 0xF];
}

// The name's bytes: as they are on POSIX systems; UTF-8 from UTF-16 on Windows, a lone surrogate taken
// as its 3-byte form (which is not valid UTF-8 and so gets escaped).
std::string NameBytes(const std::string& name) { return name; }
[[maybe_unused]] std::string NameBytes(const std::wstring& name) {
    const auto isHigh = [](std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; };
    const auto isLow = [](std::uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; };
    std::string out;
    std::size_t run = 0;  // first unit not yet converted
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto unit = static_cast<std::uint32_t>(name[i]);
        if (isHigh(unit) && i + 1 < name.size() && isLow(static_cast<std::uint32_t>(name[i + 1]))) {
            ++i;
        } else if (isHigh(unit) || isLow(unit)) {
            out += Common::WideToUtf8(std::wstring_view(name).substr(run, i - run));
            out += static_cast<char>(0xE0 | unit >> 12);
            out += static_cast<char>(0x80 | (unit >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (unit & 0x3F));
            run = i + 1;
        }
    }
    return out + Common::WideToUtf8(std::wstring_view(name).substr(run));
}

bool IsDeviceName(std::string_view stem) {
    const auto upper = [](std::string_view text) {
        std::string out(text);
        std::transform(out.begin(), out.end(), out.begin(), [](char c) { return c >= 'a' && c <= 'z' ? c - 32 : c; });
        return out;
    };
    const std::string word = upper(stem);
    if (word == "CON" || word == "PRN" || word == "AUX" || word == "NUL") return true;
    return word.size() == 4 && (word.starts_with("COM") || word.starts_with("LPT")) && word[3] >= '1' && word[3] <= '9';
}

// Cuts `stored` to the longest prefix of whole characters and escapes ("%XX") that fits `size` bytes.
std::string CutAtBoundary(const std::string& stored, std::size_t size) {
    std::size_t end = 0;
    while (end < stored.size()) {
        const std::size_t length = stored[end] == '%' ? 3 : std::max<std::size_t>(1, Utf8CharacterLength(std::string_view(stored).substr(end)));
        if (end + length > size) break;
        end += length;
    }
    return stored.substr(0, end);
}

}  // namespace

std::string StoredFileName(const std::filesystem::path::string_type& name, bool& changed) {
    const std::string bytes = NameBytes(name);
    std::string out;
    out.reserve(bytes.size());
    std::size_t trailing = bytes.size();  // where the trailing dots and blanks start
    while (trailing > 0 && (bytes[trailing - 1] == '.' || bytes[trailing - 1] == ' ')) --trailing;
    const std::size_t dot = bytes.find('.');
    const bool device = IsDeviceName(std::string_view(bytes).substr(0, dot));
    for (std::size_t i = 0; i < bytes.size();) {
        const auto c = static_cast<unsigned char>(bytes[i]);
        const std::size_t length = Utf8CharacterLength(std::string_view(bytes).substr(i));
        if (length == 0 || (length == 1 && (MustEscape(c) || i >= trailing || (device && i + 1 == std::min(dot, bytes.size()))))) {
            AppendEscaped(out, c);
            ++i;
        } else {
            out.append(bytes, i, length);
            i += length;
        }
    }
    changed = out != bytes;
    if (out.size() <= kMaxStoredName) return out;
    changed = true;
    const std::size_t extensionAt = out.rfind('.');
    const std::string extension =
        extensionAt != std::string::npos && out.size() - extensionAt <= kMaxKeptExtension ? out.substr(extensionAt) : "";
    return CutAtBoundary(out.substr(0, out.size() - extension.size()), kMaxStoredName - extension.size()) + extension;
}

std::string StoredNames::Claim(const std::string& wanted) {
    if (taken_.insert(wanted).second) return wanted;
    const std::size_t slash = wanted.rfind('/');
    const std::size_t dot = wanted.rfind('.');
    const std::size_t split = dot != std::string::npos && (slash == std::string::npos || dot > slash + 1) ? dot : wanted.size();
    for (unsigned number = 2;; ++number) {
        std::string candidate = wanted.substr(0, split) + "~" + std::to_string(number) + wanted.substr(split);
        if (taken_.insert(candidate).second) return candidate;
    }
}

}  // namespace SystemReport
