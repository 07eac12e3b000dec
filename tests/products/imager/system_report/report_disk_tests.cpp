// The disk report item: its file and text, and the stop request passed to the disk-access interface.
#include "products/imager/system_report/report_disk.h"

#include <gtest/gtest.h>

#include "core/da_api/da_properties.h"
#include "tests/core/da_api/disks_report/fake_da_api.h"
#include "tests/support/zip_test_reader.h"

namespace {

TEST(ReportDiskTest, WritesDisksTxt) {
    DaApiTest::FakeComputer computer;
    computer.properties.Text(DaApi::Prop::kComputerName, "HOST");
    DaApiTest::InstallFake(computer);
    TestSupport::TempFolder temp;
    SystemReport::ReportDisk item;
    SystemReport::FileEntries entries;
    ASSERT_FALSE(item.Create(temp.path(), entries).Failed());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].archiveName, L"disks.txt");
    EXPECT_EQ(entries[0].filter, nullptr);
    EXPECT_TRUE(TestSupport::ReadFile(entries[0].source).starts_with("DA-API report version 3\r\n\r\nComputer HOST\r\n"));
}

TEST(ReportDiskTest, StopReachesTheInterface) {
    std::shared_ptr<DaApiTest::FakeLog> log = DaApiTest::InstallFake({});
    SystemReport::ReportDisk item;
    item.Stop();
    EXPECT_EQ(log->stops, 1);
}

}  // namespace
