// The tool starter over posix_spawn: the tool runs in a process group of its own, reading nothing.
#include <fcntl.h>
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

// The tools left running at a time-out, by any starter of the process. Each is reaped, without waiting,
// by whichever starter starts a tool or ends after the tool did, so that none stays a zombie.
class LeftRunning {
public:
    void Add(pid_t pid) {
        std::lock_guard guard(lock_);
        pids_.push_back(pid);
    }
    void ReapEnded() {
        std::lock_guard guard(lock_);
        std::erase_if(pids_, [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
    }

private:
    std::mutex lock_;
    std::vector<pid_t> pids_;
};

LeftRunning& TheLeftRunning() {
    static LeftRunning leftRunning;
    return leftRunning;
}

}  // namespace

ProcessStarterImpl::~ProcessStarterImpl() {
    Terminate();
    TheLeftRunning().ReapEnded();
}

bool ProcessStarterImpl::Start(const std::wstring& executable, const std::wstring& arguments) {
    {
        std::lock_guard guard(lock_);
        exitCode_ = -1;
        failure_.clear();
    }
    TheLeftRunning().ReapEnded();
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

    SpawnSettings settings;
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
                TheLeftRunning().Add(pid);
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
