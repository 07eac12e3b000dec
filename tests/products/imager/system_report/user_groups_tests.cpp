// "groups.txt": its exact bytes, the item's entry and its failures. The groups themselves are checked
// against id(1) on Linux and against Wine's token end to end.
#include "products/imager/system_report/report_user_groups.h"

#include <gtest/gtest.h>

#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;
using SystemReport::FileEntries;
using SystemReport::ReportUserGroups;
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

// No groups, or no file: the create-file error and nothing written; else the one entry.
TEST(ReportUserGroupsTest, WritesGroupsTxtOrFailsWithTheCreateFileError) {
    TempFolder folder;
    const UserGroups groups{{L"Administrators", L"BUILTIN"}, {L"Domain Users", L"CORP"}};
    struct Case {
        UserGroups groups;
        fs::path folder;
        std::uint32_t code;
    } cases[] = {{{}, folder.path(), 0x4000A}, {groups, folder.path() / "missing", 0x4000A}, {groups, folder.path(), 0}};
    for (const Case& c : cases) {
        ReportUserGroups item([&] { return c.groups; });
        FileEntries entries;
        Common::Error error = item.Create(c.folder, entries);
        EXPECT_EQ(error.Code(), c.code);
        if (c.code != 0) {
            EXPECT_EQ(error.Message(), L"Error occurred while creating the file.");
            EXPECT_TRUE(entries.empty());
            EXPECT_TRUE(fs::is_empty(folder.path()));
            continue;
        }
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].archiveName, L"groups.txt");
        EXPECT_EQ(entries[0].filter, nullptr);
        EXPECT_EQ(TestSupport::ReadFile(entries[0].source), SystemReport::FormatUserGroups(groups));
    }
}

}  // namespace
