// "groups.txt": its exact bytes, the item's entry and its failures, and the groups of this process.
#include "products/imager/system_report/report_user_groups.h"

#include <gtest/gtest.h>

#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;
using SystemReport::FileEntries;
using SystemReport::ReportUserGroups;
using SystemReport::UserGroup;
using SystemReport::UserGroups;
using TestSupport::TempFolder;

TEST(UserGroupsFileTest, IsUtf16LeWithAByteOrderMarkAndOneQuotedLinePerGroup) {
    using namespace std::string_literals;
    // Blanks, quotes and non-ASCII letters are written as they are.
    UserGroups groups{{L"A b", L"D"}, {L"\"x\"", L"\u00dc"}};
    EXPECT_EQ(SystemReport::FormatUserGroups(groups),
              "\xFF\xFE"
              "g\0r\0o\0u\0p\0:\0 \0\"\0A\0 \0b\0\"\0 \0d\0o\0m\0a\0i\0n\0:\0 \0\"\0D\0\"\0\r\0\n\0"
              "g\0r\0o\0u\0p\0:\0 \0\"\0\"\0x\0\"\0\"\0 \0d\0o\0m\0a\0i\0n\0:\0 \0\"\0\xDC\0\"\0\r\0\n\0"s);
}

TEST(ReportUserGroupsTest, WritesGroupsTxt) {
    TempFolder folder;
    UserGroups groups{{L"Administrators", L"BUILTIN"}, {L"Domain Users", L"CORP"}};
    ReportUserGroups item([&] { return groups; });
    FileEntries entries;
    ASSERT_TRUE(item.Create(folder.path(), entries).Succeeded());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].archiveName, L"groups.txt");
    EXPECT_EQ(entries[0].title, L"Groups that contain the user account");
    EXPECT_EQ(entries[0].filter, nullptr);
    EXPECT_EQ(entries[0].source.parent_path(), folder.path());
    EXPECT_EQ(item.ProducedFiles(), std::vector<fs::path>{entries[0].source});
    EXPECT_EQ(TestSupport::ReadFile(entries[0].source), SystemReport::FormatUserGroups(groups));
}

TEST(ReportUserGroupsTest, NoGroupsIsTheCreateFileErrorAndWritesNothing) {
    TempFolder folder;
    ReportUserGroups item([] { return UserGroups{}; });
    FileEntries entries;
    Common::Error error = item.Create(folder.path(), entries);
    EXPECT_EQ(error.Code(), 0x4000Au);
    EXPECT_EQ(error.Message(), L"Error occurred while creating the file.");
    EXPECT_TRUE(entries.empty());
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(ReportUserGroupsTest, AFileThatCannotBeCreatedAddsNoEntry) {
    TempFolder folder;
    ReportUserGroups item([] { return UserGroups{{L"Users", L"BUILTIN"}}; });
    FileEntries entries;
    EXPECT_TRUE(item.Create(folder.path() / "missing", entries).Failed());
    EXPECT_TRUE(entries.empty());
}

TEST(GetUserGroupsTest, ListsNamedGroupsWithTheirDomain) {
    UserGroups groups = SystemReport::GetUserGroups();
    ASSERT_FALSE(groups.empty());
    for (const UserGroup& group : groups) {
        EXPECT_FALSE(group.name.empty());
        EXPECT_FALSE(group.domain.empty());
    }
}

}  // namespace
