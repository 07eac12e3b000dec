// What the POSIX tool runners share: how a tool is spawned (a process group of its own, no input) and the
// list of tools that could not be reaped at once.
#pragma once

#include <spawn.h>
#include <sys/types.h>

namespace SystemReport {

class ToolSpawnSettings {
public:
    // `output`: the descriptor the tool's standard output and error go to, or -1 to leave them as they are;
    // `discardErrors`: standard error goes to /dev/null instead.
    explicit ToolSpawnSettings(int output = -1, bool discardErrors = false);
    ~ToolSpawnSettings();
    ToolSpawnSettings(const ToolSpawnSettings&) = delete;
    ToolSpawnSettings& operator=(const ToolSpawnSettings&) = delete;

    const posix_spawnattr_t* Attributes() const { return &attributes_; }
    const posix_spawn_file_actions_t* Actions() const { return &actions_; }

private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

// A tool that outlived its wait (left running at a time-out, or killed but stuck in the kernel) is reaped,
// without waiting, by whichever runner starts a tool or ends later, so that none stays a zombie.
void ReapLater(pid_t pid);
void ReapEnded();

}  // namespace SystemReport
