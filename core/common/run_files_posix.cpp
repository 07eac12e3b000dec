// Process identity and private folders on Linux: /proc for start times, mkdtemp for the folder.
#include "core/common/run_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "core/common/strings.h"

namespace Common {
namespace {

// Field 22 of /proc/<pid>/stat, counted after the command name, which may hold blanks and parentheses
// and so ends at the last ')'.
std::optional<std::uint64_t> StartTime(const std::string& pid, bool& missing) {
    std::ifstream in("/proc/" + pid + "/stat");
    missing = !in && errno == ENOENT;
    std::string line;
    if (!std::getline(in, line)) return std::nullopt;
    size_t close = line.rfind(')');
    if (close == std::string::npos) return std::nullopt;
    std::istringstream fields(line.substr(close + 1));
    std::string field;
    for (int index = 3; index <= 22 && fields >> field; ++index) {
        if (index == 22) return std::stoull(field);
    }
    return std::nullopt;
}

}  // namespace

RunOwner CurrentRunOwner() {
    static const RunOwner owner = [] {
        bool missing = false;
        return RunOwner{static_cast<std::uint64_t>(getpid()), StartTime("self", missing).value_or(0)};
    }();
    return owner;
}

bool IsRunning(const RunOwner& owner) {
    bool missing = false;
    std::optional<std::uint64_t> started = StartTime(std::to_string(owner.pid), missing);
    if (missing) return false;
    return !started || *started == owner.started;
}

bool IsOwnRunFile(const std::filesystem::path& path) {
    struct stat info{};
    return lstat(path.c_str(), &info) == 0 && info.st_uid == geteuid();
}

std::error_code MakePrivateRunFolder(const std::filesystem::path& parent, std::string_view prefix,
                                     std::filesystem::path& made) {
    std::string name = NewRunFileName(prefix, "-XXXXXX");
    std::string pattern = (parent / name).native();
    if (!mkdtemp(pattern.data())) return std::error_code(errno, std::generic_category());
    made = pattern;
    return {};
}

}  // namespace Common
