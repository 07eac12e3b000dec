// Disk-image fixtures: where they are, and reading the tools' reports saved beside them.
#include "tests/core/disk/disk_fixtures.h"

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

namespace TestSupport {

std::optional<std::filesystem::path> DiskFixtures(std::string& why) {
    const std::filesystem::path folder = SR_DISK_FIXTURES_DIR;
    // Running the script is cheap when its stamp is current, so every test process may ask. Builds whose
    // tests cannot start a shell (Windows) get no script and rely on ctest's fixture step.
    if (const std::string script = SR_DISK_FIXTURE_SCRIPT; !script.empty()) {
        const std::string command = "bash '" + script + "' '" + folder.string() + "'";
        const int status = std::system(command.c_str());
        if (status != 0) {
            why = "make_fixtures.sh failed (exit status " + std::to_string(status) +
                  "); it needs the partitioning and formatting tools of fdisk, gdisk, dosfstools, ntfs-3g, "
                  "e2fsprogs and exfatprogs";
            return std::nullopt;
        }
    }
    if (!std::filesystem::exists(folder / ".stamp")) {
        why = "no disk fixtures in " + folder.string() + " (ctest's disk_fixtures step makes them)";
        return std::nullopt;
    }
    return folder;
}

std::string FixtureReport(const std::filesystem::path& fixtures, std::string_view name) {
    std::ifstream in(fixtures / "reports" / std::string(name));
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::optional<std::uint64_t> NumberAfter(const std::string& text, std::string_view label) {
    const auto at = text.find(label);
    if (at == std::string::npos) return std::nullopt;
    std::smatch match;
    const std::string rest = text.substr(at + label.size());
    if (!std::regex_search(rest, match, std::regex(R"((0x[0-9a-fA-F]+|\d+))"))) return std::nullopt;
    return std::stoull(match[1].str(), nullptr, 0);
}

std::optional<std::uint64_t> NumberBefore(const std::string& text, std::string_view label) {
    const std::string quoted = std::regex_replace(std::string(label), std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
    std::smatch match;
    if (!std::regex_search(text, match, std::regex(R"((\d+)\s+)" + quoted))) return std::nullopt;
    return std::stoull(match[1].str());
}

std::optional<std::string> TextAfter(const std::string& text, std::string_view label) {
    const auto at = text.find(label);
    if (at == std::string::npos) return std::nullopt;
    std::string line = text.substr(at + label.size());
    line = line.substr(0, line.find('\n'));
    const auto first = line.find_first_not_of(" \t");
    const auto last = line.find_last_not_of(" \t\r");
    return first == std::string::npos ? std::string() : line.substr(first, last - first + 1);
}

std::vector<SfdiskPartition> SfdiskPartitions(const std::string& json) {
    std::vector<SfdiskPartition> partitions;
    const std::regex object(R"(\{[^{}]*"start":[^{}]*\})");
    for (auto it = std::sregex_iterator(json.begin(), json.end(), object); it != std::sregex_iterator(); ++it) {
        const std::string block = it->str();
        SfdiskPartition partition;
        partition.start = *NumberAfter(block, "\"start\":");
        partition.size = *NumberAfter(block, "\"size\":");
        std::smatch match;
        if (std::regex_search(block, match, std::regex(R"re("type": "([^"]+)")re"))) partition.type = match[1];
        if (std::regex_search(block, match, std::regex(R"re("uuid": "([^"]+)")re"))) partition.uuid = match[1];
        if (std::regex_search(block, match, std::regex(R"re("node": "[^"]*?(\d+)")re"))) partition.number = std::stoul(match[1]);
        partition.bootable = block.find("\"bootable\": true") != std::string::npos;
        partitions.push_back(partition);
    }
    return partitions;
}

}  // namespace TestSupport
