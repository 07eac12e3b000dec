// Temporary files and folders of a run, named after the process that owns them, so that a later run can
// tell what a killed run left behind (its owner is gone) from what a concurrent run is still using.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace Common {

// A process as the system identifies it over time: the start time tells a reused process id apart.
struct RunOwner {
    std::uint64_t pid = 0;
    std::uint64_t started = 0;  // clock ticks since boot (Linux), FILETIME of creation (Windows)
    bool operator==(const RunOwner&) const = default;
};

// The name parts of the tool's own temporary things: "<prefix><pid>-<started>-<rest>".
inline constexpr std::string_view kScratchPrefix = "SystemReport-";
inline constexpr std::string_view kPartialArchivePrefix = ".SystemReport-";
inline constexpr std::string_view kPartialArchiveSuffix = ".partial";

RunOwner CurrentRunOwner();
// False only when the system says that no such process runs (a process that cannot be asked counts as
// running, so its files are kept).
bool IsRunning(const RunOwner& owner);

// "<prefix><pid>-<started>-<n><suffix>", `n` counting up within the process: short (under 64 bytes with
// the prefixes above), so a target name near the system's limit still leaves room for it.
std::string NewRunFileName(std::string_view prefix, std::string_view suffix);
// The owner encoded in `name` after `prefix`, if it has that shape.
std::optional<RunOwner> OwnerOfRunFile(std::string_view name, std::string_view prefix);

// A folder that only this account can open, "<prefix><pid>-<started>-<random>" below `parent`: made by
// mkdtemp (mode 0700) on POSIX systems; on Windows `parent` is the user's own temporary folder, which is
// private already.
std::error_code MakePrivateRunFolder(const std::filesystem::path& parent, std::string_view prefix,
                                     std::filesystem::path& made);

// True when `path` belongs to this account: on POSIX systems its owner (the entry itself, not what a link
// points to) is the effective user; on Windows always, as the folders searched are the user's own or the
// target's.
bool IsOwnRunFile(const std::filesystem::path& path);

// Removes the entries of `folder` named "<prefix><pid>-<started>-...<suffix>" whose owner no longer runs,
// folders with all they hold, and logs each. A link is removed as a link; on POSIX systems only entries of
// this account are touched. Returns how many were removed.
std::size_t RemoveStaleRunFiles(const std::filesystem::path& folder, std::string_view prefix,
                                std::string_view suffix = {});

}  // namespace Common
