// The retention policy over the product's log folders: at most 30 files per channel, and no more than
// 50 MiB per channel unless a single file is left.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace SystemReport {

struct LogChannel {
    std::string folder;  // below the log root
    std::string prefix;  // of the channel's log file names
};

inline constexpr std::uint64_t kMaxLogFiles = 30;
inline constexpr std::uint64_t kMaxLogBytes = 52428800;  // 0x3200000

// The product's components. Their names come as a table of prefixes ("console-", "service_") and channel
// folders ("backup_worker" after "backup_worker_"); each prefix pairs with the folder named like it without
// its trailing separator.
const std::vector<LogChannel>& ProductLogChannels();

// Applies the policy to each channel below `logRoot` (nullopt when the product's folder is unknown).
// Oldest is judged by the file's modification time, then by name (names carry a date).
void ApplyLogRetention(const std::optional<std::filesystem::path>& logRoot, const std::vector<LogChannel>& channels);

}  // namespace SystemReport
