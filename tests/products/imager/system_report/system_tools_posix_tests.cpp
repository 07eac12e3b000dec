// The Linux side of the tool items: the process's groups against what id(1) and hostname(1) say, and
// waiting for a test tool to be gone.
#include <signal.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <thread>

#include "core/common/strings.h"
#include "products/imager/system_report/user_groups.h"
#include "tests/products/imager/system_report/sr_test_tool.h"

// Gone once reaped: until then a zombie still answers kill(pid, 0).
bool TestTool::WaitForEnd(unsigned long id, std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (kill(static_cast<pid_t>(id), 0) == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return kill(static_cast<pid_t>(id), 0) != 0;
}

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

}  // namespace
