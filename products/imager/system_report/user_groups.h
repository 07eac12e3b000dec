// The security groups of the account that runs the report.
#pragma once

#include <string>
#include <vector>

namespace SystemReport {

struct UserGroup {
    std::wstring name;
    std::wstring domain;

    bool operator==(const UserGroup&) const = default;
};

using UserGroups = std::vector<UserGroup>;

// The groups of the current security context, in the order the system lists them; only groups with a
// domain are listed. Empty on every failure.
// Windows: the thread's token (an impersonated user's groups) or else the process token, each group's
// account looked up on the local system. Elsewhere: the process's effective and supplementary groups, each
// with the host name as its domain.
UserGroups GetUserGroups();

}  // namespace SystemReport
