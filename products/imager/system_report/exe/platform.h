// What the entry point needs from the platform: process set-up, the message boxes, the start event, and
// the exit status.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace SystemReport::Platform {

// Critical-error dialogs off; the runtime's invalid-parameter handler reports instead of ending the process.
void PrepareProcess();

enum class BoxStyle : unsigned { Information = 64, Error = 16 };
// A message box on Windows; the same text on standard output elsewhere.
void ShowMessage(const std::wstring& text, const std::wstring& caption, BoxStyle style);

// Pulses the named event "SystemReportStarted" (Windows); elsewhere only a debug log line.
void PulseStartEvent();

// While it lives, the system's requests to stop the process call `onStop` (never from a signal handler), and
// the process goes on to end its run in order: SIGINT and SIGTERM on POSIX systems; Ctrl+C, Ctrl+Break and
// the close, logoff and shutdown notices of a console the process is attached to on Windows, where the
// destructor also lets a waiting close notice return once the run has cleaned up. One at a time per process.
class StopRequests {
public:
    explicit StopRequests(std::function<void()> onStop);
    StopRequests(const StopRequests&) = delete;
    StopRequests& operator=(const StopRequests&) = delete;
    ~StopRequests();

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The process exit status for an error code: the 32-bit value on Windows; elsewhere the low byte, or 1
// when the low byte is 0, so that a failure never reads as success.
int ExitStatus(std::uint32_t code);

}  // namespace SystemReport::Platform
