// The tool starter over posix_spawn: the tool runs in a process group of its own, reading nothing.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "core/common/strings.h"
#include "products/imager/system_report/process_starter.h"

extern char** environ;

namespace SystemReport {
namespace {

class SpawnSettings {
public:
    SpawnSettings() {
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_init(&actions_);
        // A group of its own: Terminate ends the tool together with whatever it started, and a terminal's
        // interrupt meant for the report does not reach the tool half-way through its file.
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setsigmask(&attributes_, &none);
        // Outside the terminal's foreground group a read from the terminal would stop the tool until the
        // time-out; tools get their input from their arguments only.
        posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDONLY, 0);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawnattr_t* Attributes() const { return &attributes_; }
    const posix_spawn_file_actions_t* Actions() const { return &actions_; }

private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

}  // namespace

ProcessStarterImpl::ProcessStarterImpl(std::chrono::milliseconds timeout) : timeout_(timeout) {}

ProcessStarterImpl::~ProcessStarterImpl() { Terminate(); }

bool ProcessStarterImpl::Start(const std::wstring& executable, const std::wstring& arguments) {
    {
        std::lock_guard guard(lock_);
        exitCode_ = -1;
    }
    std::vector<std::string> words;
    for (const std::wstring& word : SplitCommandLine(executable + L" " + arguments)) words.push_back(Common::WideToUtf8(word));
    if (words.empty() || words.front().empty()) return false;
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    SpawnSettings settings;
    pid_t pid = 0;
    {
        std::lock_guard guard(lock_);
        if (posix_spawnp(&pid, argv.front(), settings.Actions(), settings.Attributes(), argv.data(), environ) != 0) {
            return false;
        }
        process_ = pid;
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
                process_ = 0;
                return true;
            }
            if (std::chrono::steady_clock::now() >= deadline) {
                // Left running, deliberately; it is no longer ours to terminate.
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
    if (process_ == 0) return false;
    return kill(-static_cast<pid_t>(process_), SIGKILL) == 0;
}

std::int32_t ProcessStarterImpl::GetExitCode() {
    std::lock_guard guard(lock_);
    return exitCode_;
}

}  // namespace SystemReport
