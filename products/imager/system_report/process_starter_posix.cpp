// The tool starter over posix_spawn: the tool runs in a process group of its own, reading nothing.
#include <signal.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <thread>

#include "core/common/error.h"
#include "core/common/strings.h"
#include "products/imager/system_report/process_starter.h"
#include "products/imager/system_report/tool_spawn_posix.h"

extern char** environ;

namespace SystemReport {

ProcessStarterImpl::~ProcessStarterImpl() {
    Terminate();
    ReapEnded();
}

bool ProcessStarterImpl::Start(const std::wstring& executable, const std::wstring& arguments) {
    {
        std::lock_guard guard(lock_);
        exitCode_ = -1;
        failure_.clear();
    }
    ReapEnded();
    std::vector<std::string> words;
    for (const std::wstring& word : SplitCommandLine(executable + L" " + arguments)) words.push_back(Common::WideToUtf8(word));
    if (words.empty() || words.front().empty()) {
        std::lock_guard guard(lock_);
        failure_ = kToolNotFound;
        return false;
    }
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    ToolSpawnSettings settings;
    pid_t pid = 0;
    {
        std::lock_guard guard(lock_);
        if (int error = posix_spawnp(&pid, argv.front(), settings.Actions(), settings.Attributes(), argv.data(), environ);
            error != 0) {
            failure_ = error == ENOENT ? std::wstring(kToolNotFound) : Common::Error::AddErrno(error).Message();
            return false;
        }
        process_ = pid;
        // posix_spawn returns once the tool's group exists, so a Terminate that came before reaches it all.
        if (terminateRequested_) kill(-pid, SIGKILL);
    }

    // The zombie is reaped only under the lock, so a Terminate racing with the tool's end never signals
    // a process id that has been given to another process.
    auto deadline = std::chrono::steady_clock::now() + timeout_;
    auto pause = std::chrono::milliseconds(1);
    for (;;) {
        {
            std::lock_guard guard(lock_);
            int status = 0;
            pid_t done = waitpid(pid, &status, WNOHANG);
            if (done == pid) {
                if (WIFEXITED(status)) {
                    exitCode_ = WEXITSTATUS(status);
                } else if (WIFSIGNALED(status)) {
                    // SIGKILL is how Terminate ends a tool, and Terminate's exit code is 1; other signals
                    // read as a shell shows them.
                    exitCode_ = WTERMSIG(status) == SIGKILL ? 1 : 128 + WTERMSIG(status);
                }
                process_ = 0;
                return true;
            }
            if (done < 0 && errno != EINTR) {
                failure_ = Common::Error::AddErrno(errno).Message();
                process_ = 0;
                return true;
            }
            if (std::chrono::steady_clock::now() >= deadline) {
                // Left running, deliberately; it is no longer ours to terminate, only to reap.
                failure_ = kToolLeftRunning;
                ReapLater(pid);
                process_ = 0;
                return true;
            }
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::milliseconds(50));
    }
}

bool ProcessStarterImpl::Terminate() {
    std::lock_guard guard(lock_);
    terminateRequested_ = true;
    if (process_ == 0) return false;
    return kill(-static_cast<pid_t>(process_), SIGKILL) == 0;
}

}  // namespace SystemReport
