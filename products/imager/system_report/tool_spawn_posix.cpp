// Spawn settings and late reaping for the POSIX tool runners.
#include "products/imager/system_report/tool_spawn_posix.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <mutex>
#include <vector>

namespace SystemReport {
namespace {

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

ToolSpawnSettings::ToolSpawnSettings(int output, bool discardErrors) {
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
    if (output >= 0) {
        posix_spawn_file_actions_adddup2(&actions_, output, 1);
        if (discardErrors) {
            posix_spawn_file_actions_addopen(&actions_, 2, "/dev/null", O_WRONLY, 0);
        } else {
            posix_spawn_file_actions_adddup2(&actions_, output, 2);
        }
    }
#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 34)
    // Once the output is in place: the report's own descriptors (its log, the archive being written) are
    // no business of a tool's, and the LVM tools complain of each one they find.
    posix_spawn_file_actions_addclosefrom_np(&actions_, 3);
#endif
}

ToolSpawnSettings::~ToolSpawnSettings() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
}

void ReapLater(pid_t pid) { TheLeftRunning().Add(pid); }

void ReapEnded() { TheLeftRunning().ReapEnded(); }

}  // namespace SystemReport
