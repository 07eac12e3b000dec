// End to end on Linux: the built SystemReport with SYSTEM_REPORT_EFIVARS_DIR pointing at a fixture folder
// puts the expected "uefi_vars.txt" into its archive; and the item keeps what a disk that fills up took of
// its text.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>

#include "products/imager/system_report/report_uefi_bootvars.h"
#include "tests/core/grub_parser/uefi_bootvars/efivarfs_fixture.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_fakes.h"
#include "tests/support/zip_test_reader.h"

namespace {

// Temporary and build paths hold no quote.
std::string Quoted(const std::string& text) { return "'" + text + "'"; }

// Runs the report with the given efivarfs root and returns the archive's "uefi_vars.txt".
std::string ReportText(const std::filesystem::path& efivars) {
    TestSupport::TempFolder work;
    std::filesystem::path archive = work.path() / "r.zip";
    std::string run = "SYSTEM_REPORT_EFIVARS_DIR=" + Quoted(efivars.string()) + " " + Quoted(SR_SYSTEM_REPORT_BINARY) +
                      " /silent " + Quoted("/filename:" + archive.string()) + " >/dev/null 2>&1";
    EXPECT_EQ(std::system(run.c_str()), 0) << run;
    auto entries = TestSupport::ReadZip(archive);
    EXPECT_TRUE(entries && entries->count("uefi_vars.txt")) << "no uefi_vars.txt in the archive";
    return entries ? (*entries)["uefi_vars.txt"].data : std::string();
}

TEST(UefiReportEndToEnd, FixtureFolderGivesTheGoldenText) {
    TestSupport::TempFolder efivars;
    UefiTest::WriteFixtureMachine(efivars.path());
    EXPECT_EQ(ReportText(efivars.path()), UefiTest::FixtureReportText());
}

TEST(UefiReportEndToEnd, NoEfivarfsGivesTheNotEnabledLines) {
    TestSupport::TempFolder parent;
    EXPECT_EQ(ReportText(parent.path() / "no-such-folder"),
              "Boot variables are not allowed on this system" + UefiTest::kSeparator +
                  "Could not obtain Boot Entries Enumerator, UEFI is not enabledCould not obtain Boot Order, UEFI is not enabled");
}

// A file-size limit makes a disk that fills up: the write that crosses it is cut short, later ones fail.
TEST(UefiReportItem, FileThatFillsUpIsArchivedWithWhatItTook) {
    TestSupport::TempFolder folder;
    auto store = std::make_shared<UefiTest::FakeVariableStore>();
    store->values = UefiTest::FixtureVariables();
    SystemReport::ReportUefiBootvars item(store);
    SystemReport::FileEntries entries;
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit limited{100, saved.rlim_max};
    auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limited);
    Common::Error error = item.Create(folder.path(), entries);
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(error.Code(), 0x40007u);
    EXPECT_EQ(error.Message(), L"The disk is full.");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].archiveName, L"uefi_vars.txt");
    EXPECT_EQ(TestSupport::ReadFile(entries[0].source), UefiTest::FixtureReportText().substr(0, 100));
}

}  // namespace
