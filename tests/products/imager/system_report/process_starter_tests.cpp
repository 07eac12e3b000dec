// The tool starter with real processes (the test tool beside this test), and the command-line split that
// the Linux starter uses.
#include "products/imager/system_report/process_starter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "core/common/folders.h"
#include "core/common/strings.h"
#include "products/imager/system_report/report_manager.h"
#include "products/imager/system_report/report_process_base.h"
#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using SystemReport::FileEntries;
using SystemReport::ProcessStarterImpl;
using SystemReport::SplitCommandLine;
using TestSupport::TempFolder;

std::wstring WideText(const fs::path& path) { return Common::Utf8ToWide(Common::PathToUtf8(path)); }

// The test tool, copied into a folder whose name has blanks and a non-ASCII letter, as product folders do.
class ToolFolder {
public:
    ToolFolder() {
        fs::path source = Common::ExecutablePath().parent_path() / SR_TEST_TOOL_FILE_NAME;
        fs::path folder = temp_.path() / Common::PathFromUtf8("tools f\xC3\xBCr Ber\xC3\xA4""dt");
        fs::create_directories(folder);
        tool_ = folder / SR_TEST_TOOL_FILE_NAME;
        fs::copy_file(source, tool_);
        scratch_ = temp_.path() / Common::PathFromUtf8("scratch \xC3\xA9t\xC3\xA9");
        fs::create_directories(scratch_);
    }
    std::wstring QuotedTool() const { return L"\"" + WideText(tool_) + L"\""; }
    const fs::path& Scratch() const { return scratch_; }

private:
    TempFolder temp_;
    fs::path tool_;
    fs::path scratch_;
};

// A report item whose tool is the test tool: writes the scratch file (unless told not to), then does `then`.
class ToolItem : public SystemReport::ReportProcessBase {
public:
    ToolItem(std::wstring tool, std::wstring then, std::chrono::milliseconds timeout = SystemReport::kToolTimeout,
             bool writes = true)
        : ReportProcessBase(std::make_unique<ProcessStarterImpl>(timeout)),
          tool_(std::move(tool)),
          then_(std::move(then)),
          writes_(writes) {}

protected:
    std::wstring GetExecutable() override { return tool_; }
    std::wstring GetArguments(const fs::path& folder, std::wstring& name) override {
        if (!writes_) return then_;
        return L"--write " + QuotedPath(folder, name) + L" \"tool output\" " + then_;
    }
    SystemReport::FileEntry MakeFileEntry(const fs::path& path) override {
        return {path, L"tool.txt", L"Tool output", nullptr, false, false};
    }

private:
    std::wstring tool_;
    std::wstring then_;
    bool writes_;
};

TEST(SplitCommandLineTest, FollowsTheWindowsRuntimeRules) {
    using Words = std::vector<std::wstring>;
    EXPECT_EQ(SplitCommandLine(L"reg EXPORT \"HKLM\\Software\\Brendix\" \"C:\\a b\\F00D\" /y"),
              (Words{L"reg", L"EXPORT", L"HKLM\\Software\\Brendix", L"C:\\a b\\F00D", L"/y"}));
    EXPECT_EQ(SplitCommandLine(L"wmic nteventlog where \"Logfilename='System'\" Call"),
              (Words{L"wmic", L"nteventlog", L"where", L"Logfilename='System'", L"Call"}));
    // The quotes of a WMI query sit inside a word.
    EXPECT_EQ(SplitCommandLine(L"/OUTPUT:\"/tmp/x y\" path"), (Words{L"/OUTPUT:/tmp/x y", L"path"}));
    EXPECT_EQ(SplitCommandLine(L"  msinfo32.exe\t  /nfo  "), (Words{L"msinfo32.exe", L"/nfo"}));
    EXPECT_EQ(SplitCommandLine(L"a \"\" b"), (Words{L"a", L"", L"b"}));
    EXPECT_EQ(SplitCommandLine(L""), Words{});
    // Backslashes count only before a quote: 2n give n and a grouping quote, 2n+1 give n and a literal one.
    EXPECT_EQ(SplitCommandLine(L"a\\\\b \"c\\\\\" d"), (Words{L"a\\\\b", L"c\\", L"d"}));
    EXPECT_EQ(SplitCommandLine(L"\"say \\\"hi\\\"\" x\\\\\\\"y"), (Words{L"say \"hi\"", L"x\\\"y"}));
    EXPECT_EQ(SplitCommandLine(L"\"unterminated tail"), (Words{L"unterminated tail"}));
}

TEST(ProcessStarterTest, ExitCodesOfEndedTerminatedAndMissingTools) {
    ToolFolder tools;
    ProcessStarterImpl starter;
    EXPECT_EQ(starter.GetExitCode(), -1);
    ASSERT_TRUE(starter.Start(tools.QuotedTool(), L"--exit 7"));
    EXPECT_EQ(starter.GetExitCode(), 7);
    EXPECT_FALSE(starter.Terminate()) << "nothing runs between two starts";

    auto run = std::async(std::launch::async, [&] { return starter.Start(tools.QuotedTool(), L"--sleep 60000"); });
    bool terminated = false;
    for (int i = 0; i < 200 && !terminated; ++i) {
        std::this_thread::sleep_for(50ms);
        terminated = starter.Terminate();
    }
    ASSERT_TRUE(terminated);
    ASSERT_EQ(run.wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(run.get());
    EXPECT_EQ(starter.GetExitCode(), 1);

    EXPECT_FALSE(starter.Start(L"\"" + WideText(tools.Scratch() / "no such tool") + L"\"", L"--exit 0"));
    EXPECT_EQ(starter.GetExitCode(), -1);
}

TEST(ReportProcessBaseTest, ExitZeroWithItsFileGivesTheEntry) {
    ToolFolder tools;
    ToolItem item(tools.QuotedTool(), L"--exit 0");
    FileEntries entries;
    ASSERT_TRUE(item.Create(tools.Scratch(), entries).Succeeded());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].archiveName, L"tool.txt");
    EXPECT_EQ(entries[0].source.parent_path(), tools.Scratch());
    EXPECT_EQ(TestSupport::ReadFile(entries[0].source), "tool output");
    EXPECT_EQ(item.ProducedFiles(), std::vector<fs::path>{entries[0].source});
}

TEST(ReportProcessBaseTest, ANonZeroExitGivesNoEntryThoughTheFileWasWritten) {
    ToolFolder tools;
    ToolItem item(tools.QuotedTool(), L"--exit 1");
    FileEntries entries;
    EXPECT_TRUE(item.Create(tools.Scratch(), entries).Succeeded());
    EXPECT_TRUE(entries.empty());
    EXPECT_TRUE(item.ProducedFiles().empty());
    EXPECT_FALSE(fs::is_empty(tools.Scratch())) << "the tool did write its file";
}

TEST(ReportProcessBaseTest, AToolThatOutlivesTheTimeOutGivesNoEntryIsLeftRunningAndTheRunGoesOn) {
    ToolFolder tools;
    TempFolder scratchParent;
    fs::path late = tools.Scratch() / "late.txt";
    SystemReport::ReportManager manager;
    manager.Add(std::make_shared<ToolItem>(
        tools.QuotedTool(), L"--sleep 1500 --write \"" + WideText(late) + L"\" done", 200ms));
    manager.Add(std::make_shared<ToolItem>(tools.QuotedTool(), L"--exit 0"));
    auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(manager.Create(scratchParent.path()).Succeeded());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1400ms);
    ASSERT_EQ(manager.Entries().size(), 1u);
    EXPECT_EQ(TestSupport::ReadFile(manager.Entries()[0].source), "tool output");
    // Not killed: it finishes its work on its own.
    EXPECT_FALSE(fs::exists(late));
    for (int i = 0; i < 100 && !fs::exists(late); ++i) std::this_thread::sleep_for(100ms);
    EXPECT_TRUE(fs::exists(late));
}

// As Wine's msinfo32 does: the entry is made, and the save goes on without its missing file.
TEST(ReportProcessBaseTest, AToolThatEndsWellWithoutItsFileDoesNotFailTheSave) {
    ToolFolder tools;
    TempFolder scratchParent;
    SystemReport::ReportManager manager;
    manager.Add(std::make_shared<ToolItem>(tools.QuotedTool(), L"--exit 0", SystemReport::kToolTimeout, false));
    manager.Add(std::make_shared<ToolItem>(tools.QuotedTool(), L"--exit 0"));
    ASSERT_TRUE(manager.Create(scratchParent.path()).Succeeded());
    EXPECT_EQ(manager.Entries().size(), 2u);
    fs::path archive = scratchParent.path() / "r.zip";
    ASSERT_TRUE(manager.SaveAs(archive).Succeeded());
    auto stored = TestSupport::ReadZip(archive);
    ASSERT_TRUE(stored.has_value());
    ASSERT_EQ(stored->size(), 1u);
    EXPECT_EQ(stored->at("tool.txt").data, "tool output");
}

TEST(ReportProcessBaseTest, StopFromAnotherThreadEndsTheRunningTool) {
    ToolFolder tools;
    ToolItem item(tools.QuotedTool(), L"--sleep 60000");
    FileEntries entries;
    auto run = std::async(std::launch::async, [&] { return item.Create(tools.Scratch(), entries); });
    // Stop only once the tool has written its file, so it is surely running.
    for (int i = 0; i < 200 && fs::is_empty(tools.Scratch()); ++i) std::this_thread::sleep_for(50ms);
    ASSERT_FALSE(fs::is_empty(tools.Scratch()));
    item.Stop();
    ASSERT_EQ(run.wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(run.get().Succeeded());
    EXPECT_TRUE(entries.empty());
}

}  // namespace
