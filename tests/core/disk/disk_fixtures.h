// Access to the disk-image fixtures that tests/data/disk/make_fixtures.sh makes with the real tools.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

// The fixture folder. On Linux the script is run into it when it is not complete yet; under Wine the
// ctest fixture "disk_fixtures" has made it. nullopt, with `why` filled in, when the images are not there
// (a tool is missing): the caller skips.
std::optional<std::filesystem::path> DiskFixtures(std::string& why);

// A tool's report that the script saved in <fixtures>/reports.
std::string FixtureReport(const std::filesystem::path& fixtures, std::string_view name);

// The first number after `label` in `text` (decimal, or hexadecimal after "0x"); nullopt when absent.
std::optional<std::uint64_t> NumberAfter(const std::string& text, std::string_view label);
// The number just before `label` ("    512 bytes per cluster"); nullopt when absent.
std::optional<std::uint64_t> NumberBefore(const std::string& text, std::string_view label);
// The rest of the line after `label`, trimmed.
std::optional<std::string> TextAfter(const std::string& text, std::string_view label);

// Partitions of a "sfdisk --json" report.
struct SfdiskPartition {
    std::uint32_t number = 0;  // from the device node's trailing digits
    std::uint64_t start = 0;
    std::uint64_t size = 0;
    std::string type;
    std::string uuid;
    bool bootable = false;
};
std::vector<SfdiskPartition> SfdiskPartitions(const std::string& json);

}  // namespace TestSupport
