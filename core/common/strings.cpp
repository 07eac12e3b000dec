// Text conversions written once for both widths of wchar_t.
#include "core/common/strings.h"

#include <cstdint>
#include <type_traits>

namespace Common {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

void AppendWide(std::wstring& out, char32_t c) {
    if constexpr (sizeof(wchar_t) == 2) {
        if (c >= 0x10000) {
            c -= 0x10000;
            out += static_cast<wchar_t>(0xD800 + (c >> 10));
            out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
            return;
        }
    }
    out += static_cast<wchar_t>(c);
}

bool IsHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// Decodes one code point from UTF-16 units, advancing `i`; an unpaired surrogate comes back as itself.
template <typename Units>
char32_t NextUtf16(const Units& units, size_t& i) {
    char32_t c = units(i++);
    if (IsHighSurrogate(c) && units.has(i) && IsLowSurrogate(units(i))) {
        char32_t low = units(i++);
        return 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
    }
    return c;
}

template <typename Char>
std::basic_string<Char> Format(std::basic_string_view<Char> format,
                               std::initializer_list<std::basic_string_view<Char>> args) {
    std::basic_string<Char> out;
    out.reserve(format.size());
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '{') {
            size_t close = format.find('}', i + 1);
            if (close != std::basic_string_view<Char>::npos && close > i + 1 && close - i <= 4) {
                size_t index = 0;
                bool digits = true;
                for (size_t k = i + 1; k < close; ++k) {
                    if (format[k] < '0' || format[k] > '9') digits = false;
                    else index = index * 10 + static_cast<size_t>(format[k] - '0');
                }
                if (digits && index < args.size()) {
                    out += *(args.begin() + index);
                    i = close;
                    continue;
                }
            }
        }
        out += format[i];
    }
    return out;
}

}  // namespace

std::wstring Utf8ToWide(std::string_view text) {
    std::wstring out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            out += static_cast<wchar_t>(lead);
            ++i;
            continue;
        }
        size_t extra = 0;
        char32_t c = 0;
        if (lead >= 0xC2 && lead <= 0xDF) {
            extra = 1;
            c = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            extra = 2;
            c = lead & 0x0F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            extra = 3;
            c = lead & 0x07;
        }
        // A bad sequence is replaced as a whole up to the first byte that cannot continue it.
        size_t used = 1;
        bool ok = extra != 0;
        while (ok && used <= extra) {
            if (i + used >= text.size() || (static_cast<unsigned char>(text[i + used]) & 0xC0) != 0x80) {
                ok = false;
                break;
            }
            c = (c << 6) | (static_cast<unsigned char>(text[i + used]) & 0x3F);
            ++used;
        }
        // Overlong forms, surrogates and values past U+10FFFF are not valid UTF-8.
        if (ok && ((extra == 2 && c < 0x800) || (extra == 3 && (c < 0x10000 || c > 0x10FFFF)) ||
                   IsHighSurrogate(c) || IsLowSurrogate(c))) {
            ok = false;
        }
        AppendWide(out, ok ? c : kReplacement);
        i += used;
    }
    return out;
}

std::string WideToUtf8(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    if constexpr (sizeof(wchar_t) == 2) {
        struct Units {
            std::wstring_view v;
            char32_t operator()(size_t i) const { return static_cast<char16_t>(v[i]); }
            bool has(size_t i) const { return i < v.size(); }
        } units{text};
        for (size_t i = 0; i < text.size();) {
            char32_t c = NextUtf16(units, i);
            AppendUtf8(out, IsHighSurrogate(c) || IsLowSurrogate(c) ? kReplacement : c);
        }
    } else {
        for (wchar_t w : text) {
            auto c = static_cast<char32_t>(w);
            AppendUtf8(out, c > 0x10FFFF || IsHighSurrogate(c) || IsLowSurrogate(c) ? kReplacement : c);
        }
    }
    return out;
}

std::string WideToUtf16Le(std::wstring_view text) {
    std::string out;
    out.reserve(text.size() * 2);
    auto put = [&out](char32_t unit) {
        out += static_cast<char>(unit & 0xFF);
        out += static_cast<char>((unit >> 8) & 0xFF);
    };
    for (wchar_t w : text) {
        auto c = static_cast<char32_t>(w);
        if (sizeof(wchar_t) == 4 && c >= 0x10000 && c <= 0x10FFFF) {
            c -= 0x10000;
            put(0xD800 + (c >> 10));
            put(0xDC00 + (c & 0x3FF));
        } else {
            put(c > 0x10FFFF ? kReplacement : c);
        }
    }
    return out;
}

std::wstring Utf16LeToWide(std::string_view bytes) {
    struct Units {
        std::string_view v;
        char32_t operator()(size_t i) const {
            return static_cast<unsigned char>(v[2 * i]) | (static_cast<unsigned char>(v[2 * i + 1]) << 8);
        }
        bool has(size_t i) const { return 2 * i + 1 < v.size(); }
    } units{bytes};
    std::wstring out;
    out.reserve(bytes.size() / 2);
    for (size_t i = 0; units.has(i);) {
        char32_t c = NextUtf16(units, i);
        if constexpr (sizeof(wchar_t) == 2) {
            if (c >= 0x10000) AppendWide(out, c);
            else out += static_cast<wchar_t>(c);
        } else {
            out += static_cast<wchar_t>(IsHighSurrogate(c) || IsLowSurrogate(c) ? kReplacement : c);
        }
    }
    return out;
}

namespace {

// A native wide path (Windows) is converted without the library's converter, which throws on an unpaired
// surrogate; a native narrow path (POSIX) is bytes and passes through as it is. Templates, so that only the
// branch of this platform's width is compiled.
template <typename Char>
std::string NativeToUtf8(const std::basic_string<Char>& native) {
    if constexpr (std::is_same_v<Char, wchar_t>) return WideToUtf8(native);
    else return native;
}

template <typename Char>
std::basic_string<Char> NativeFromUtf8(std::string_view text) {
    if constexpr (std::is_same_v<Char, wchar_t>) return Utf8ToWide(text);
    else return std::string(text);
}

template <typename Char>
std::wstring NativeToWide(const std::basic_string<Char>& native) {
    if constexpr (std::is_same_v<Char, wchar_t>) return native;
    else return Utf8ToWide(native);
}

}  // namespace

std::string PathToUtf8(const std::filesystem::path& path) { return NativeToUtf8(path.native()); }

std::filesystem::path PathFromUtf8(std::string_view text) {
    return std::filesystem::path(NativeFromUtf8<std::filesystem::path::value_type>(text));
}

std::wstring PathToWide(const std::filesystem::path& path) { return NativeToWide(path.native()); }

std::wstring FormatPlaceholders(std::wstring_view format, std::initializer_list<std::wstring_view> args) {
    return Format<wchar_t>(format, args);
}

std::string FormatPlaceholders(std::string_view format, std::initializer_list<std::string_view> args) {
    return Format<char>(format, args);
}

}  // namespace Common
