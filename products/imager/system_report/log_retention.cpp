// Log retention over the product's log folders.
#include "products/imager/system_report/log_retention.h"

#include <algorithm>
#include <system_error>

#include "core/common/log.h"
#include "core/common/strings.h"

namespace fs = std::filesystem;

namespace SystemReport {
namespace {

constexpr const char* kRetentionNames[] = {
    "qvrh_mms_addon_", "qvrh_services_addon_", "console-",      "installer-",     "installerui-",
    "MediaBuilder-",   "service_",             "backup_worker_", "backup_worker", "media_builder_",
    "media_builder",   "cx_demon_",            "cx_demon"};

std::vector<LogChannel> PairRetentionNames() {
    std::vector<LogChannel> channels;
    for (std::string_view name : kRetentionNames) {
        char last = name.back();
        if (last != '_' && last != '-') continue;  // a folder name: its prefix entry already made the pair
        channels.push_back({std::string(name.substr(0, name.size() - 1)), std::string(name)});
    }
    return channels;
}

struct LogFile {
    fs::path path;
    std::uint64_t size = 0;
    fs::file_time_type modified;
};

void ApplyToChannel(const fs::path& root, const LogChannel& channel) {
    fs::path folder = root / channel.folder;
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) {
        Common::Log::Debug("LogRetentionPolicy: Log directory not found: directory '" + Common::PathToUtf8(folder) +
                           "', channel '" + channel.folder + "'");
        return;
    }
    std::vector<LogFile> files;
    std::uint64_t total = 0;
    fs::directory_iterator it(folder, ec);
    if (ec) {
        Common::Log::Warning("LogRetentionPolicy: Unable to open channel log directory: '" + Common::PathToUtf8(folder) + "'");
        return;
    }
    for (fs::directory_iterator end; !ec && it != end; it.increment(ec)) {
        std::error_code fileError;
        if (!it->is_regular_file(fileError)) continue;
        std::string name = Common::PathToUtf8(it->path().filename());
        if (name.compare(0, channel.prefix.size(), channel.prefix) != 0) continue;
        LogFile file{it->path(), it->file_size(fileError), it->last_write_time(fileError)};
        if (fileError) continue;
        total += file.size;
        files.push_back(std::move(file));
    }
    std::sort(files.begin(), files.end(), [](const LogFile& a, const LogFile& b) {
        return a.modified != b.modified ? a.modified < b.modified : a.path.filename() < b.path.filename();
    });
    std::uint64_t count = files.size();
    for (const LogFile& oldest : files) {
        if (!(count > kMaxLogFiles || (total > kMaxLogBytes && count > 1))) break;
        if (!fs::remove(oldest.path, ec)) {
            Common::Log::Warning("LogRetentionPolicy: Unable to remove log file " + Common::PathToUtf8(oldest.path.filename()) +
                                 ": " + ec.message());
            return;
        }
        Common::Log::Info("LogRetentionPolicy: Log file " + Common::PathToUtf8(oldest.path.filename()) +
                          " removed due to retention policy. " + std::to_string(oldest.size) + " bytes freed.");
        --count;
        total -= oldest.size;
    }
}

}  // namespace

const std::vector<LogChannel>& ProductLogChannels() {
    static const std::vector<LogChannel> channels = PairRetentionNames();
    return channels;
}

void ApplyLogRetention(const std::optional<fs::path>& logRoot, const std::vector<LogChannel>& channels) {
    for (const LogChannel& channel : channels) {
        if (!logRoot) {
            Common::Log::Warning("LogRetentionPolicy: Unable to get root directory pointer");
            continue;
        }
        std::error_code ec;
        if (!fs::is_directory(*logRoot, ec)) {
            Common::Log::Warning("LogRetentionPolicy: Unable to open directory: " + Common::PathToUtf8(*logRoot));
            continue;
        }
        ApplyToChannel(*logRoot, channel);
    }
}

}  // namespace SystemReport
