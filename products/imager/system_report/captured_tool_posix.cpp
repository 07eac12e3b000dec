// The captured tool runner over posix_spawn and a pipe; the tool's end is waited for through a process
// descriptor where the kernel has them (Linux 5.3), else by looking every 50 ms.
#include "products/imager/system_report/captured_tool.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "core/common/file_descriptor.h"
#include "core/common/strings.h"
#include "products/imager/system_report/tool_spawn_posix.h"

extern char** environ;

namespace SystemReport {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// How long a killed tool is waited for before it is left to be reaped later: a tool in an uninterruptible
// wait (a read from a failing disk) ends only when the kernel lets it.
constexpr auto kReapWait = 5s;
constexpr auto kLookInterval = 50ms;

Common::FileDescriptor ProcessDescriptor(pid_t pid) {
#ifdef SYS_pidfd_open
    return Common::FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
#else
    (void)pid;
    return Common::FileDescriptor();
#endif
}

// Ended but not yet reaped: the leader's id, and with it the group's, stays reserved until waitpid.
bool LeaderEnded(pid_t pid) {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
}

// Waits until `pid` ended or `until` passed; true when it ended.
bool WaitForEnd(pid_t pid, const Common::FileDescriptor& process, Clock::time_point until) {
    while (!LeaderEnded(pid)) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (left <= 0ms) return false;
        pollfd watch{process.Get(), POLLIN, 0};
        if (process) {
            poll(&watch, 1, static_cast<int>(left.count()));
        } else {
            poll(nullptr, 0, static_cast<int>(std::min(left, std::chrono::milliseconds(kLookInterval)).count()));
        }
    }
    return true;
}

int ExitCode(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

}  // namespace

CapturedTool::~CapturedTool() { ReapEnded(); }

Common::Error CapturedTool::Run(const std::filesystem::path& tool, const std::vector<std::string>& arguments,
                                bool discardErrors, std::chrono::milliseconds limit, CappedOutput& output, ToolEnd& end) {
    end = {};
    ReapEnded();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return Common::Error::AddErrno(errno);
    Common::FileDescriptor reading(ends[0]), writing(ends[1]);

    std::vector<std::string> words{Common::PathToUtf8(tool)};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    const auto deadline = Clock::now() + limit;
    ToolSpawnSettings settings(writing.Get(), discardErrors);
    pid_t pid = 0;
    {
        std::lock_guard guard(lock_);
        if (int error = posix_spawn(&pid, argv.front(), settings.Actions(), settings.Attributes(), argv.data(), environ);
            error != 0) {
            return Common::Error::AddErrno(error);
        }
        group_ = pid;
        // posix_spawn returns once the tool's group exists, so a Terminate that came before reaches it all.
        if (terminateRequested_) kill(-pid, SIGKILL);
    }
    writing.Reset();
    Common::FileDescriptor process = ProcessDescriptor(pid);

    std::optional<ToolEnd::How> killedFor;
    bool ended = false, open = true;
    char buffer[64 * 1024];
    while (open || !ended) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left <= 0ms) {
            killedFor = ToolEnd::How::kTimedOut;
            break;
        }
        pollfd watch[2];
        nfds_t count = 0;
        if (open) watch[count++] = {reading.Get(), POLLIN, 0};
        if (!ended && process) watch[count++] = {process.Get(), POLLIN, 0};
        if (!ended && !process) left = std::min(left, std::chrono::milliseconds(kLookInterval));
        if (poll(watch, count, static_cast<int>(left.count())) < 0 && errno != EINTR) break;
        if (open && watch[0].revents != 0) {
            ssize_t got = read(reading.Get(), buffer, sizeof buffer);
            if (got > 0 && !output.Append(std::string_view(buffer, static_cast<size_t>(got)))) {
                killedFor = ToolEnd::How::kCapped;
                break;
            }
            if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) open = false;
        }
        if (!ended && LeaderEnded(pid)) {
            ended = true;
            // What the tool left behind in its group would hold the output open, or run on unseen.
            kill(-pid, SIGKILL);
        }
    }

    if (killedFor || !ended) kill(-pid, SIGKILL);
    bool stopped = false;
    {
        std::lock_guard guard(lock_);
        group_ = 0;
        stopped = terminateRequested_;
    }
    if (!WaitForEnd(pid, process, Clock::now() + kReapWait)) {
        ReapLater(pid);
        end = {killedFor.value_or(ToolEnd::How::kTimedOut), -1};
        return {};
    }
    int status = 0;
    waitpid(pid, &status, 0);
    end.code = ExitCode(status);
    if (killedFor) {
        end.how = *killedFor;
    } else if (stopped && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) {
        end.how = ToolEnd::How::kStopped;
    }
    return {};
}

void CapturedTool::Terminate() {
    std::lock_guard guard(lock_);
    terminateRequested_ = true;
    if (group_ != 0) kill(-group_, SIGKILL);
}

}  // namespace SystemReport
