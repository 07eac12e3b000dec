// End to end on Linux: the built SystemReport with SYSTEM_REPORT_EFIVARS_DIR pointing at a fixture folder
// puts the expected "uefi_vars.txt" into its archive, as read back by Info-ZIP's unzip; and the item keeps
// what a disk that fills up took of its text.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "products/imager/system_report/report_uefi_bootvars.h"
#include "tests/core/grub_parser/uefi_bootvars/efivarfs_fixture.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_fakes.h"
#include "tests/support/zip_test_reader.h"

namespace {

std::string Quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string Capture(const std::string& command, int& status) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) {
        status = -1;
        return out;
    }
    char buffer[4096];
    for (std::size_t got; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, got);
    status = pclose(pipe);
    return out;
}

// Runs the report with the given efivarfs root and returns the archive's "uefi_vars.txt".
std::string ReportText(const std::filesystem::path& efivars, const std::filesystem::path& work) {
    std::filesystem::path archive = work / "r.zip";
    std::string run = "SYSTEM_REPORT_EFIVARS_DIR=" + Quoted(efivars.string()) + " " + Quoted(SR_SYSTEM_REPORT_BINARY) +
                      " /silent " + Quoted("/filename:" + archive.string()) + " >/dev/null 2>&1";
    EXPECT_EQ(std::system(run.c_str()), 0) << run;
    int status = 0;
    std::string text = Capture("unzip -p " + Quoted(archive.string()) + " uefi_vars.txt", status);
    EXPECT_EQ(status, 0) << "unzip could not read uefi_vars.txt";
    return text;
}

class UefiReportEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::system("command -v unzip >/dev/null 2>&1") != 0) GTEST_SKIP() << "Info-ZIP unzip is not installed";
    }
    TestSupport::TempFolder work;
};

TEST_F(UefiReportEndToEnd, FixtureFolderGivesTheGoldenText) {
    std::filesystem::path efivars = work.path() / "efivars";
    std::filesystem::create_directory(efivars);
    UefiTest::WriteFixtureMachine(efivars);
    EXPECT_EQ(ReportText(efivars, work.path()), UefiTest::FixtureReportText());
}

TEST_F(UefiReportEndToEnd, NoEfivarfsGivesTheNotEnabledLines) {
    EXPECT_EQ(ReportText(work.path() / "no-such-folder", work.path()), UefiTest::NoUefiReportText(false));
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
