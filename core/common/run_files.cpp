// Naming of the run's temporary files and removal of what ended runs left behind.
#include "core/common/run_files.h"

#include <atomic>
#include <charconv>
#include <vector>

#include "core/common/log.h"
#include "core/common/strings.h"

namespace fs = std::filesystem;

namespace Common {
namespace {

std::string OwnerText(const RunOwner& owner) {
    return std::to_string(owner.pid) + "-" + std::to_string(owner.started);
}

// Reads a decimal number up to `end` ('-'), advancing `at`; nullopt when there is none.
std::optional<std::uint64_t> Number(std::string_view text, size_t& at) {
    std::uint64_t value = 0;
    auto [next, ec] = std::from_chars(text.data() + at, text.data() + text.size(), value);
    if (ec != std::errc() || next == text.data() + at || next == text.data() + text.size() || *next != '-') {
        return std::nullopt;
    }
    at = static_cast<size_t>(next - text.data()) + 1;
    return value;
}

}  // namespace

std::string NewRunFileName(std::string_view prefix, std::string_view suffix) {
    static std::atomic<std::uint64_t> counter{0};
    return std::string(prefix) + OwnerText(CurrentRunOwner()) + "-" + std::to_string(counter++) +
           std::string(suffix);
}

std::optional<RunOwner> OwnerOfRunFile(std::string_view name, std::string_view prefix) {
    if (name.substr(0, prefix.size()) != prefix) return std::nullopt;
    size_t at = prefix.size();
    auto pid = Number(name, at);
    if (!pid) return std::nullopt;
    auto started = Number(name, at);
    if (!started) return std::nullopt;
    return RunOwner{*pid, *started};
}

std::size_t RemoveStaleRunFiles(const fs::path& folder, std::string_view prefix, std::string_view suffix) {
    std::vector<fs::path> stale;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::string name = PathToUtf8(it->path().filename());
        if (name.size() < suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) {
            continue;
        }
        std::optional<RunOwner> owner = OwnerOfRunFile(name, prefix);
        if (owner && !IsRunning(*owner) && IsOwnRunFile(it->path())) stale.push_back(it->path());
    }
    std::size_t removed = 0;
    for (const fs::path& path : stale) {
        // remove_all takes a link away as a link and never descends through one.
        fs::remove_all(path, ec);
        if (ec) {
            Log::Warning("Stale file '" + PathToUtf8(path) + "' of an ended run cannot be removed: " + ec.message());
        } else {
            Log::Info("Stale file '" + PathToUtf8(path) + "' of an ended run removed.");
            ++removed;
        }
    }
    return removed;
}

}  // namespace Common
