// Names of files in the archive: every name a file system allows becomes one name that every zip reader
// accepts and reads alike, that makes no folder and does not climb out, and that maps back to the original.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <string_view>

namespace SystemReport {

// The stored form of one name of a folder's listing (native bytes on POSIX systems, UTF-16 on Windows).
// The result is valid UTF-8: characters are kept as they are except that
// - a byte that is not part of a valid UTF-8 character (on Windows: each unit of a lone surrogate, taken
//   as its 3-byte form) becomes "%XX" (upper-case hexadecimal), and so do '%' itself, control characters
//   (below 0x20 and 0x7F) and the characters that Windows refuses in names: \ / : * ? " < > |
// - a trailing '.' or blank becomes "%2E" or "%20" (Windows drops them), which also keeps "." and ".."
//   from being stored as such;
// - a Windows device name (CON, PRN, AUX, NUL, COM1-9, LPT1-9, before any extension, any case) has its
//   last letter escaped ("CO%4E.txt").
// Decoding every "%XX" gives the original name back. A result longer than 255 bytes is cut to 255 on a
// character boundary, keeping the extension; only such a name does not map back.
// `changed` tells whether the stored name differs from the name as it is.
std::string StoredFileName(const std::filesystem::path::string_type& name, bool& changed);

// The names given out so far in one archive, so that no two files get the same one.
class StoredNames {
public:
    // `wanted` when it is new, else the first of "stem~2.ext", "stem~3.ext", ... that is.
    std::string Claim(const std::string& wanted);

private:
    std::set<std::string> taken_;
};

}  // namespace SystemReport
