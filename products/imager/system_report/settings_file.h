// Settings files of the product are stored in the report without their stored passwords.
#pragma once

#include <filesystem>
#include <string>

namespace SystemReport {

// Files named *.ini (any case) are settings files: "key=value" lines, optionally in [sections].
bool IsSettingsFile(const std::filesystem::path& path);

// Removes, in place, every line whose key is "OBPassword" or "OBSessionPassword": any case, quoted or
// not, blanks or tabs around it, followed by '=' or ':'. Lines end at CR LF, LF or CR. A settings file
// may be 8-bit text (ANSI or UTF-8, with or without a byte-order mark) or UTF-16 in either byte order,
// with or without a mark, and nothing reliable tells which: the file is read in every one of these ways
// (bytes, 16-bit little-endian and big-endian units) and a key line found in any reading is cut out, its
// line end with it. A line found in one reading is never a line in another, so text of any one encoding
// loses exactly those lines; every other byte, a byte-order mark, lone surrogates and bytes that are not
// valid in any encoding included, is kept as it was.
void RemoveSecretSettings(std::string& text);

}  // namespace SystemReport
