// The version report's exact bytes, and the generic text item around it.
#include "products/imager/system_report/version_report.h"

#include <gtest/gtest.h>

#include "tests/support/zip_test_reader.h"

namespace {

TEST(VersionReportTest, OneUtf8LineWithCrLfAndNoByteOrderMark) {
    TestSupport::TempFolder temp;
    SystemReport::ReportVersion item;
    SystemReport::FileEntries entries;
    ASSERT_FALSE(item.Create(temp.path(), entries).Failed());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].archiveName, L"version.txt");
    EXPECT_EQ(entries[0].title, L"Version Report");
    EXPECT_EQ(TestSupport::ReadFile(entries[0].source), "Product version: 24.7.38530\r\n");
}

TEST(VersionReportTest, TextItemThatCannotCreateItsFileAddsNoEntry) {
    TestSupport::TempFolder temp;
    int calls = 0;
    bool sawStream = true;
    SystemReport::TextReport item(L"t", L"x.txt", [&](std::ostream* out) {
        ++calls;
        sawStream = out != nullptr;
        return Common::Error();
    });
    SystemReport::FileEntries entries;
    Common::Error error = item.Create(temp.path() / "missing-folder", entries);
    EXPECT_EQ(error.Code(), 0x4000au);
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(calls, 1) << "the producer still runs without a stream, to release what it holds";
    EXPECT_FALSE(sawStream);
}

}  // namespace
