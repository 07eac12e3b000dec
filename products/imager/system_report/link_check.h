// Links of the file system: copying a folder never follows them, and the tool never writes through them.
#pragma once

#include <filesystem>
#include <string_view>

namespace SystemReport {

// True for a symbolic link and, on Windows, for any name-surrogate reparse point (symbolic links,
// junctions, volume mount points), which the standard library there does not report as links, and for
// the host's symbolic links as Wine shows them. Other reparse points (deduplicated or cloud files) are
// ordinary files. A trailing separator does not make the link's target the entry asked about. False
// when the entry cannot be examined; the caller then meets the same failure when it opens the entry.
bool IsLink(const std::filesystem::path& path);

// Creates `path` as a new file holding `data`. Fails, leaving whatever is there as it was, when anything
// already has that name, a link included (dangling or not): the tool runs elevated and must never write
// through a link planted where it writes. A file that could not be written completely is removed.
bool WriteNewFile(const std::filesystem::path& path, std::string_view data);

}  // namespace SystemReport
