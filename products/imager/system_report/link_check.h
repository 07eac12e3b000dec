// Whether a folder entry is a link of the file system, which copying a folder must never follow.
#pragma once

#include <filesystem>

namespace SystemReport {

// True for a symbolic link and, on Windows, for any name-surrogate reparse point (symbolic links,
// junctions, volume mount points), which the standard library there does not report as links, and for
// the host's symbolic links as Wine shows them. Other reparse points (deduplicated or cloud files) are
// ordinary files. False when the entry cannot be examined; the caller then meets the same failure when
// it opens the entry.
bool IsLink(const std::filesystem::path& path);

}  // namespace SystemReport
