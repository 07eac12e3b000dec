// Settings files of the product are stored in the report without their stored passwords.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace SystemReport {

// Files named *.ini (any case) are settings files: "key=value" lines, optionally in [sections], in
// 8-bit text or UTF-16LE with a byte-order mark.
bool IsSettingsFile(const std::filesystem::path& path);

// The settings text without the keys "OBPassword" and "OBSessionPassword" (in any section, any case).
// Everything else, including comments, line ends and the encoding, is kept as it was.
std::string RemoveSecretSettings(const std::string& text);

// Writes `scrubbed` as the copy "<file>.for_report" beside the file and returns its path; nullopt when
// the copy cannot be made there, also when anything (a link planted there, a copy left by an earlier
// run) already has that name: the copy is always a new file.
std::optional<std::filesystem::path> WriteReportCopyOfSettings(const std::filesystem::path& path,
                                                               const std::string& scrubbed);

}  // namespace SystemReport
