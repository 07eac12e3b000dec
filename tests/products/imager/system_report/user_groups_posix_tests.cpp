// The process's groups on Linux, checked against what id(1) and hostname(1) say.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "core/common/strings.h"
#include "products/imager/system_report/report_system_tools.h"
#include "products/imager/system_report/user_groups.h"

namespace {

std::string CommandOutput(const char* command) {
    std::string output;
    FILE* pipe = popen(command, "r");
    if (!pipe) return output;
    char buffer[256];
    while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
    pclose(pipe);
    while (!output.empty() && (output.back() == '\n' || output.back() == ' ')) output.pop_back();
    return output;
}

TEST(GetUserGroupsPosixTest, TheAccountsGroupsWithTheHostNameAsDomain) {
    std::string host = CommandOutput("hostname 2>/dev/null");
    std::string names = CommandOutput("id -Gn 2>/dev/null");
    if (host.empty() || names.empty()) GTEST_SKIP() << "hostname(1) or id(1) is not available";
    SystemReport::UserGroups expected;
    std::istringstream words(names);
    for (std::string name; words >> name;) expected.push_back({Common::Utf8ToWide(name), Common::Utf8ToWide(host)});
    EXPECT_EQ(SystemReport::GetUserGroups(), expected);
}

// Linux has none of the Windows tools: every item runs nothing that exists and adds nothing.
TEST(SystemToolItemsPosixTest, WindowsToolsAreNotFoundAndAddNothing) {
    SystemReport::ReportContext context;
    auto items = SystemReport::MakeSystemToolItems(context);
    EXPECT_EQ(items.size(), 5u);
    SystemReport::FileEntries entries;
    for (const auto& item : items) EXPECT_TRUE(item->Create("/nonexistent folder", entries).Succeeded());
    EXPECT_TRUE(entries.empty());
}

}  // namespace
