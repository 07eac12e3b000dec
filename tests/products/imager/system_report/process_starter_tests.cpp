// The tool starter with real processes (the test tool beside this test), and the command-line split that
// the Linux starter uses.
#include "products/imager/system_report/process_starter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "core/common/folders.h"
#include "core/common/strings.h"
#include "products/imager/system_report/report_manager.h"
#include "products/imager/system_report/report_process_base.h"
#include "tests/products/imager/system_report/sr_test_tool.h"
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

// A report item whose tool is the test tool; {0} in `arguments` stands for its quoted scratch file.
class ToolItem : public SystemReport::ReportProcessBase {
public:
    ToolItem(std::wstring tool, std::wstring arguments, std::chrono::milliseconds timeout = SystemReport::kToolTimeout)
        : ReportProcessBase(std::make_unique<ProcessStarterImpl>(timeout)), tool_(std::move(tool)), arguments_(std::move(arguments)) {}

protected:
    std::wstring GetExecutable() override { return tool_; }
    std::wstring GetArguments(const fs::path& folder, std::wstring& name) override {
        return Common::FormatPlaceholders(arguments_, {QuotedPath(folder, name)});
    }
    SystemReport::FileEntry MakeFileEntry(const fs::path& path) override {
        return {path, L"tool.txt", L"Tool output", nullptr, false, false};
    }

private:
    std::wstring tool_, arguments_;
};

std::wstring WritingItsFile(const std::wstring& then) { return L"--write {0} \"tool output\" " + then; }

bool WaitFor(const std::function<bool()>& done) {
    for (int i = 0; i < 400 && !done(); ++i) std::this_thread::sleep_for(50ms);
    return done();
}

TEST(SplitCommandLineTest, FollowsTheWindowsRuntimeRules) {
    using Words = std::vector<std::wstring>;
    EXPECT_EQ(SplitCommandLine(L"reg EXPORT \"HKLM\\Software\\Brendix\" \"C:\\a b\\F00D\" /y"),
              (Words{L"reg", L"EXPORT", L"HKLM\\Software\\Brendix", L"C:\\a b\\F00D", L"/y"}));
    // The quotes of a WMI query sit inside a word.
    EXPECT_EQ(SplitCommandLine(L"/OUTPUT:\"/tmp/x y\" path"), (Words{L"/OUTPUT:/tmp/x y", L"path"}));
    EXPECT_EQ(SplitCommandLine(L"  msinfo32.exe\t  /nfo  "), (Words{L"msinfo32.exe", L"/nfo"}));
    EXPECT_EQ(SplitCommandLine(L"a \"\" b"), (Words{L"a", L"", L"b"}));
    // Backslashes count only before a quote: 2n give n and a grouping quote, 2n+1 give n and a literal one.
    EXPECT_EQ(SplitCommandLine(L"a\\\\b \"c\\\\\" d"), (Words{L"a\\\\b", L"c\\", L"d"}));
    EXPECT_EQ(SplitCommandLine(L"\"say \\\"hi\\\"\" x\\\\\\\"y"), (Words{L"say \"hi\"", L"x\\\"y"}));
    EXPECT_EQ(SplitCommandLine(L"\"unterminated tail"), (Words{L"unterminated tail"}));
}

TEST(ProcessStarterTest, ExitCodesOfEndedAndMissingToolsAndOfToolsStartedAfterATerminate) {
    ToolFolder tools;
    ProcessStarterImpl starter;
    ASSERT_TRUE(starter.Start(tools.QuotedTool(), L"--exit 7"));
    EXPECT_EQ(starter.GetExitCode(), 7);
    EXPECT_FALSE(starter.Start(L"\"" + WideText(tools.Scratch() / "no such tool") + L"\"", L"--exit 0"));
    EXPECT_EQ(starter.GetExitCode(), -1);
    EXPECT_EQ(starter.GetFailure(), SystemReport::kToolNotFound);

    // A Terminate that came before the start (a Stop racing with it) ends the tool at once, with exit code 1.
    EXPECT_FALSE(starter.Terminate()) << "nothing runs";
    auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(starter.Start(tools.QuotedTool(), L"--sleep 60000"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
    EXPECT_EQ(starter.GetExitCode(), 1);
}

TEST(ReportProcessBaseTest, AToolThatOutlivesTheTimeOutGivesNoEntryIsLeftRunningAndTheRunGoesOn) {
    ToolFolder tools;
    TempFolder scratchParent;
    const fs::path late = tools.Scratch() / "late.txt", pid = tools.Scratch() / "pid.txt";
    {
        SystemReport::ReportManager manager;
        manager.Add(std::make_shared<ToolItem>(
            tools.QuotedTool(), L"--pid \"" + WideText(pid) + L"\" --sleep 3000 --write \"" + WideText(late) + L"\" done", 200ms));
        manager.Add(std::make_shared<ToolItem>(tools.QuotedTool(), WritingItsFile(L"--exit 0")));
        ASSERT_TRUE(manager.Create(scratchParent.path()).Succeeded());
        // The run did not wait for the tool: its late file is written 3 s after its start, only later.
        EXPECT_FALSE(fs::exists(late));
        ASSERT_EQ(manager.Entries().size(), 1u);
        EXPECT_EQ(TestSupport::ReadFile(manager.Entries()[0].source), "tool output");
    }
    // Not killed, not even when its item is gone: it finishes its work on its own, and a later starter
    // reaps it.
    ASSERT_TRUE(WaitFor([&] { return fs::exists(late); }));
    ProcessStarterImpl().Start(tools.QuotedTool(), L"--sleep 300");
    EXPECT_TRUE(TestTool::WaitForEnd(std::stoul(TestSupport::ReadFile(pid)), 20s));
}

TEST(ReportProcessBaseTest, StopFromAnotherThreadEndsTheRunningTool) {
    ToolFolder tools;
    ToolItem item(tools.QuotedTool(), WritingItsFile(L"--sleep 60000"));
    FileEntries entries;
    auto run = std::async(std::launch::async, [&] { return item.Create(tools.Scratch(), entries); });
    // Stopped only once it wrote its file, so surely running: a tool ended half-way through its start
    // under Wine may leave processes that hold the test's output.
    ASSERT_TRUE(WaitFor([&] { return !fs::is_empty(tools.Scratch()); }));
    item.Stop();
    ASSERT_EQ(run.wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(run.get().Succeeded());
    EXPECT_TRUE(entries.empty());
}

}  // namespace
