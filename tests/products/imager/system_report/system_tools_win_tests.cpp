// The Windows side of the tool starter against the real system (under Wine in this project's runs): the
// search for a tool given by its bare name, and waiting for a test tool.
#include <gtest/gtest.h>

#include "core/common/folders.h"
#include "core/common/windows_api.h"
#include "products/imager/system_report/process_starter.h"
#include "tests/products/imager/system_report/sr_test_tool.h"
#include "tests/support/zip_test_reader.h"

bool TestTool::WaitForEnd(unsigned long id, std::chrono::milliseconds limit) {
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, id);
    // No process has that id any more.
    if (!process) return GetLastError() == ERROR_INVALID_PARAMETER;
    bool ended = WaitForSingleObject(process, static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
    CloseHandle(process);
    return ended;
}

namespace {

namespace fs = std::filesystem;

// Run elevated from a downloads folder, a bare tool name must reach neither a program planted beside the
// report tool nor one in the current directory, whatever PATH says; other absolute PATH folders count.
TEST(ProcessStarterWinTest, ABareToolNameIsSearchedForOutsideTheProgramsFolderAndTheCurrentDirectory) {
    const fs::path own = Common::ExecutablePath().parent_path(), previous = fs::current_path();
    TestSupport::TempFolder current, onPath;
    for (const fs::path& folder : {own, current.path(), onPath.path()}) {
        fs::copy_file(own / SR_TEST_TOOL_FILE_NAME, folder / "sr_planted_tool.exe", fs::copy_options::overwrite_existing);
    }
    fs::current_path(current.path());
    std::wstring path(GetEnvironmentVariableW(L"PATH", nullptr, 0), L'\0');
    path.resize(GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size())));
    for (auto [first, found] : {std::pair{own.wstring(), false}, std::pair{current.path().wstring(), false},
                                std::pair{std::wstring(L"."), false}, std::pair{onPath.path().wstring(), true}}) {
        SCOPED_TRACE(fs::path(first).string());
        SetEnvironmentVariableW(L"PATH", (first + L";" + path).c_str());
        SystemReport::ProcessStarterImpl starter;
        EXPECT_EQ(starter.Start(L"sr_planted_tool", L"--exit 3"), found);
        EXPECT_EQ(starter.GetExitCode(), found ? 3 : -1);
    }
    SetEnvironmentVariableW(L"PATH", path.c_str());
    fs::current_path(previous);
    fs::remove(own / "sr_planted_tool.exe");
}

}  // namespace
