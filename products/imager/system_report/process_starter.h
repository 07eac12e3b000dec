// Runs one operating-system tool hidden, waits for it within a time limit, and reports its exit code.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace SystemReport {

class ProcessStarter {
public:
    virtual ~ProcessStarter() = default;
    // Runs "executable arguments" and waits for it. True when the process was created, whatever its outcome.
    virtual bool Start(const std::wstring& executable, const std::wstring& arguments) = 0;
    // From any thread: ends the running tool with exit code 1, and every tool started afterwards at once,
    // so that a Stop racing with a start is never lost. False when no tool is running.
    virtual bool Terminate() = 0;
    // The exit code of the last tool; -1 until one ended by itself or by Terminate.
    virtual std::int32_t GetExitCode() = 0;
    // Why the last tool has no exit code of its own: kToolNotFound or the system's error text when Start
    // returned false, kToolLeftRunning when it outlived the time-out; empty once a tool ended.
    virtual std::wstring GetFailure() = 0;
};

inline constexpr wchar_t kToolNotFound[] = L"not found";
inline constexpr wchar_t kToolLeftRunning[] = L"left running";

// How long a tool may run. A tool still running then is left running: killing a half-way system tool
// (an event-log backup, a registry export) can leave things worse than letting it finish unseen.
inline constexpr std::chrono::milliseconds kToolTimeout{600000};

class ProcessStarterImpl final : public ProcessStarter {
public:
    explicit ProcessStarterImpl(std::chrono::milliseconds timeout = kToolTimeout);
    ProcessStarterImpl(const ProcessStarterImpl&) = delete;
    ProcessStarterImpl& operator=(const ProcessStarterImpl&) = delete;
    // Terminates a tool that is still held.
    ~ProcessStarterImpl() override;

    bool Start(const std::wstring& executable, const std::wstring& arguments) override;
    bool Terminate() override;
    std::int32_t GetExitCode() override;
    std::wstring GetFailure() override;

private:
    const std::chrono::milliseconds timeout_;
    // Terminate comes from another thread while Start waits.
    std::mutex lock_;
    std::int32_t exitCode_ = -1;
    std::wstring failure_;
    // Held only while Start waits for the tool: a process handle on Windows, a process id elsewhere.
    std::intptr_t process_ = 0;
    // Set by Terminate and never cleared: Start checks it once the tool exists and before it runs.
    bool terminateRequested_ = false;
};

// The words of a command line as the Windows C runtime splits it: blanks separate words, double quotes
// group them, and backslashes are literal except before a double quote (2n backslashes and a quote give n
// backslashes and a grouping quote, 2n+1 give n backslashes and a literal quote). Used where tools are
// started from an argument vector rather than a command line.
std::vector<std::wstring> SplitCommandLine(std::wstring_view commandLine);

}  // namespace SystemReport
