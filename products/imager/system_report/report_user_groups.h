// The report item "groups.txt": the groups of the account that runs the report, as UTF-16LE text.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "products/imager/system_report/report.h"
#include "products/imager/system_report/user_groups.h"

namespace SystemReport {

// The file's bytes: the byte-order mark, then one line per group,
// group: "<name>" domain: "<domain>"\r\n, all UTF-16LE. Names are written as they are, quotes included.
std::string FormatUserGroups(const UserGroups& groups);

class ReportUserGroups final : public Report {
public:
    using GroupSource = std::function<UserGroups()>;

    explicit ReportUserGroups(GroupSource groups = GetUserGroups);

    // An empty list (no token, no groups, or none with a domain) is the error 0x4000a and writes nothing.
    Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) override;

    const std::vector<std::filesystem::path>& ProducedFiles() const { return produced_; }

private:
    GroupSource groups_;
    std::vector<std::filesystem::path> produced_;
};

}  // namespace SystemReport
