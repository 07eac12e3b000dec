// The process's groups from the group database, with the host name as their domain.
#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <vector>

#include "core/common/strings.h"
#include "products/imager/system_report/user_groups.h"

namespace SystemReport {
namespace {

std::wstring HostName() {
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name - 1) != 0) return {};
    return Common::Utf8ToWide(name);
}

// A group without an entry in the database has no name to list.
bool GroupName(gid_t id, std::wstring& name) {
    std::vector<char> buffer(1024);
    for (;;) {
        group entry{};
        group* found = nullptr;
        int error = getgrgid_r(id, &entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE && buffer.size() < (1u << 20)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (error != 0 || !found) return false;
        name = Common::Utf8ToWide(found->gr_name);
        return true;
    }
}

}  // namespace

UserGroups GetUserGroups() {
    // The effective group first, as the system's own tools list it; getgroups may or may not repeat it.
    std::vector<gid_t> ids{getegid()};
    int count = getgroups(0, nullptr);
    if (count > 0) {
        std::vector<gid_t> supplementary(static_cast<size_t>(count));
        count = getgroups(count, supplementary.data());
        for (int i = 0; i < count; ++i) {
            if (std::find(ids.begin(), ids.end(), supplementary[static_cast<size_t>(i)]) == ids.end()) {
                ids.push_back(supplementary[static_cast<size_t>(i)]);
            }
        }
    }
    UserGroups groups;
    std::wstring domain = HostName();
    if (domain.empty()) return groups;
    for (gid_t id : ids) {
        std::wstring name;
        if (GroupName(id, name)) groups.push_back({name, domain});
    }
    return groups;
}

}  // namespace SystemReport
