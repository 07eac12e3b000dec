// The user groups item.
#include "products/imager/system_report/report_user_groups.h"

#include <fstream>

#include "core/common/localized.h"
#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/common/uuid.h"

namespace SystemReport {
namespace {

constexpr char kByteOrderMark[] = "\xFF\xFE";

std::string GroupLine(const UserGroup& group) {
    return Common::WideToUtf16Le(L"group: \"" + group.name + L"\" domain: \"" + group.domain + L"\"\r\n");
}

}  // namespace

std::string FormatUserGroups(const UserGroups& groups) {
    std::string bytes = kByteOrderMark;
    for (const UserGroup& group : groups) bytes += GroupLine(group);
    return bytes;
}

ReportUserGroups::ReportUserGroups(GroupSource groups) : groups_(std::move(groups)) {}

Common::Error ReportUserGroups::Create(const std::filesystem::path& folder, FileEntries& entries) {
    UserGroups groups = groups_();
    if (groups.empty()) {
        Common::Log::Error("The account's groups cannot be listed; 'groups.txt' is not in the report.");
        return Common::Error::Make(Common::Codes::kCreateFile, Common::Localized(L"Error occurred while creating the file."));
    }
    std::filesystem::path path = folder / Common::NewScratchName();
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        Common::Log::Error("Cannot create '" + Common::PathToUtf8(path) + "' for 'groups.txt'.");
        return Common::Error::Make(Common::Codes::kCreateFile, Common::Localized(L"Error occurred while creating the file."));
    }
    produced_.push_back(path);
    out.write(kByteOrderMark, 2);
    for (const UserGroup& group : groups) {
        if (!out) break;
        std::string line = GroupLine(group);
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
    out.close();
    if (!out) {
        Common::Log::Error("Cannot write '" + Common::PathToUtf8(path) + "' for 'groups.txt'.");
        return Common::Error::Make(Common::Codes::kOpenFile, L"Cannot write an item to the system report.");
    }
    entries.push_back({path, L"groups.txt", Common::Localized(L"Groups that contain the user account"), nullptr, false,
                       false});
    Common::Log::Info("The account's groups listed (" + std::to_string(groups.size()) + "); 'groups.txt' added.");
    return {};
}

}  // namespace SystemReport
