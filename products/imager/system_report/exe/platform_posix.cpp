// POSIX half of the entry point's platform needs.
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <thread>

#include "core/common/file_descriptor.h"
#include "core/common/log.h"
#include "core/common/strings.h"
#include "products/imager/system_report/exe/platform.h"

namespace SystemReport::Platform {
namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM};

// The write end of the stop pipe. A handler may only do what is async-signal-safe: it writes the signal's
// number into the pipe, and the watcher thread does the rest.
volatile sig_atomic_t stopPipe = -1;

extern "C" void OnStopSignal(int signal) {
    int saved = errno;
    unsigned char number = static_cast<unsigned char>(signal);
    [[maybe_unused]] ssize_t written = write(stopPipe, &number, 1);
    errno = saved;
}

}  // namespace

struct StopRequests::State {
    Common::FileDescriptor readEnd, writeEnd;
    struct sigaction previous[std::size(kStopSignals)]{};
    std::thread watcher;
};

StopRequests::StopRequests(std::function<void()> onStop) : state_(std::make_unique<State>()) {
    int ends[2];
    // Non-blocking on the handler's side: a flood of signals must never block a handler.
    if (pipe2(ends, O_CLOEXEC) != 0) {
        Common::Log::Warning(std::string("Stop signals cannot be watched: ") + strerror(errno));
        return;
    }
    state_->readEnd.Reset(ends[0]);
    state_->writeEnd.Reset(ends[1]);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    stopPipe = ends[1];
    state_->watcher = std::thread([read = ends[0], onStop = std::move(onStop)] {
        for (;;) {
            unsigned char number = 0;
            ssize_t got = ::read(read, &number, 1);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0 || number == 0) return;
            Common::Log::Info("Stop requested by signal " + std::to_string(number) + ": the run is canceled.");
            onStop();
        }
    });
    struct sigaction action{};
    action.sa_handler = &OnStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (size_t i = 0; i < std::size(kStopSignals); ++i) sigaction(kStopSignals[i], &action, &state_->previous[i]);
}

StopRequests::~StopRequests() {
    if (!state_->watcher.joinable()) return;
    for (size_t i = 0; i < std::size(kStopSignals); ++i) sigaction(kStopSignals[i], &state_->previous[i], nullptr);
    // A zero byte ends the watcher; it is written blocking-free like a signal, so retry while the pipe is full.
    const unsigned char end = 0;
    while (write(state_->writeEnd.Get(), &end, 1) < 0 && (errno == EINTR || errno == EAGAIN)) std::this_thread::yield();
    state_->watcher.join();
    stopPipe = -1;
}

void PrepareProcess() {}

void ShowMessage(const std::wstring& text, const std::wstring& caption, BoxStyle) {
    std::cout << Common::WideToUtf8(caption) << ": " << Common::WideToUtf8(text) << std::endl;
}

void PulseStartEvent() { Common::Log::Debug("No start event on this platform."); }

int ExitStatus(std::uint32_t code) {
    int low = static_cast<int>(code & 0xFF);
    return code != 0 && low == 0 ? 1 : low;
}

}  // namespace SystemReport::Platform
