// When a file was created, as far as the file system knows.
#pragma once

#include <ctime>
#include <filesystem>
#include <optional>

namespace SystemReport {

// The creation time on Windows; on Linux the birth time (statx) where the file system records it, else
// the time of the last change to the contents. nullopt when the file cannot be examined.
std::optional<std::time_t> FileCreationTime(const std::filesystem::path& path);

}  // namespace SystemReport
