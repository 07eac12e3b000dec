// Text conversions between UTF-8, wide strings and UTF-16LE bytes, and "{0}" placeholder formatting.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>

namespace Common {

// Malformed input never fails: an invalid sequence becomes U+FFFD.
std::wstring Utf8ToWide(std::string_view text);
std::string WideToUtf8(std::wstring_view text);

// UTF-16LE as bytes, whatever the width of wchar_t (files that must be UTF-16LE are so on every platform).
std::string WideToUtf16Le(std::wstring_view text);
// An odd trailing byte is dropped; unpaired surrogates are kept as they are on Windows and become U+FFFD
// where wchar_t is 32 bits wide.
std::wstring Utf16LeToWide(std::string_view bytes);

// Paths as UTF-8 text (log lines, archive names, error fields) and back. None of these throws. On POSIX
// systems a path is bytes in no known encoding: they pass through unchanged both ways (lossless, though
// not always valid UTF-8).
std::string PathToUtf8(const std::filesystem::path& path);
std::filesystem::path PathFromUtf8(std::string_view text);
// A path as wide text, for message boxes: exact on Windows; on POSIX systems what is not UTF-8 becomes
// U+FFFD (unlike path::wstring(), which depends on the locale and throws).
std::wstring PathToWide(const std::filesystem::path& path);

// Replaces "{0}", "{1}", ... by the arguments; a placeholder without an argument is left as it is.
std::wstring FormatPlaceholders(std::wstring_view format, std::initializer_list<std::wstring_view> args);
std::string FormatPlaceholders(std::string_view format, std::initializer_list<std::string_view> args);

}  // namespace Common
