// The groups of the current access token, looked up on the local system.
#include "core/common/windows_api.h"

#include <cstdint>
#include <memory>

#include "core/common/windows_handles.h"
#include "products/imager/system_report/user_groups.h"

namespace SystemReport {
namespace {


// The thread's own token when it impersonates someone: that user's groups are the ones that count.
bool OpenCurrentToken(Common::KernelHandle& token) {
    if (OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.Receive())) return true;
    if (GetLastError() != ERROR_NO_TOKEN) return false;
    return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive()) != FALSE;
}

// Well-known groups such as the world group have no domain and are left out.
bool LookUpGroup(PSID sid, UserGroup& group) {
    DWORD nameLength = 0;
    DWORD domainLength = 0;
    SID_NAME_USE use;
    LookupAccountSidW(nullptr, sid, nullptr, &nameLength, nullptr, &domainLength, &use);
    std::wstring name(nameLength, L'\0');
    std::wstring domain(domainLength, L'\0');
    if (!LookupAccountSidW(nullptr, sid, name.data(), &nameLength, domain.data(), &domainLength, &use)) return false;
    if (domainLength == 0) return false;
    // On success the lengths exclude the terminator.
    name.resize(nameLength);
    domain.resize(domainLength);
    group = {std::move(name), std::move(domain)};
    return true;
}

}  // namespace

UserGroups GetUserGroups() {
    UserGroups groups;
    Common::KernelHandle token;
    if (!OpenCurrentToken(token)) return groups;

    DWORD size = 0;
    if (GetTokenInformation(token.Get(), TokenGroups, nullptr, 0, &size) || GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return groups;
    }
    // TOKEN_GROUPS holds pointers: the buffer must be aligned for them.
    auto buffer = std::make_unique<std::uint64_t[]>(size / sizeof(std::uint64_t) + 1);
    auto* tokenGroups = reinterpret_cast<TOKEN_GROUPS*>(buffer.get());
    if (!GetTokenInformation(token.Get(), TokenGroups, tokenGroups, size, &size)) return groups;

    for (DWORD i = 0; i < tokenGroups->GroupCount; ++i) {
        UserGroup group;
        if (LookUpGroup(tokenGroups->Groups[i].Sid, group)) groups.push_back(std::move(group));
    }
    return groups;
}

}  // namespace SystemReport
