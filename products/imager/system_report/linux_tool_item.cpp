// Linux report items: gathering tools' output and system files into one capped file each.
#include "products/imager/system_report/linux_tool_item.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>
#include <string_view>

#include "core/common/file_descriptor.h"
#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/common/uuid.h"

namespace SystemReport {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadPiece = 64 * 1024;
// A DMI value is a line; more than this is no DMI value.
constexpr std::size_t kFolderValueCap = 4096;

std::string SecondsText(std::chrono::milliseconds time) {
    auto seconds = std::chrono::duration<double>(time).count();
    char text[32];
    std::snprintf(text, sizeof text, "%g s", seconds);
    return text;
}

// The text of a record of /dev/kmsg as dmesg prints it: "[seconds.micros] message". A record is
// "priority,sequence,microseconds,flags[,...];message" and may carry "\n KEY=value" lines after the message
// (Documentation/ABI/testing/dev-kmsg in the kernel's sources), which are left out.
std::string KernelLogLine(std::string_view record) {
    std::size_t head = record.find(';');
    if (head == std::string_view::npos) return std::string(record);
    std::string_view fields = record.substr(0, head), message = record.substr(head + 1);
    message = message.substr(0, message.find('\n'));
    std::size_t first = fields.find(','), second = fields.find(',', first + 1);
    std::string_view micros = second == std::string_view::npos ? "" : fields.substr(second + 1);
    micros = micros.substr(0, micros.find(','));
    unsigned long long value = 0;
    for (char c : micros) value = c >= '0' && c <= '9' ? value * 10 + static_cast<unsigned>(c - '0') : value;
    char stamp[40];
    std::snprintf(stamp, sizeof stamp, "[%5llu.%06llu] ", value / 1000000, value % 1000000);
    return stamp + std::string(message) + "\n";
}

std::string ErrnoText(int error) { return Common::WideToUtf8(Common::Error::AddErrno(error).Message()); }

// Appends a note on a line of its own.
void Note(CappedOutput& output, const std::string& text) { output.Append("[" + text + "]\n"); }

}  // namespace

std::vector<fs::path> LinuxToolOptions::DefaultSearchPath() {
    std::vector<fs::path> folders;
    std::set<fs::path> seen;
    auto add = [&](std::string_view folder) {
        // A relative folder would depend on where the report was started: never a place to take a tool
        // from that runs as root.
        if (folder.starts_with('/') && seen.insert(fs::path(folder)).second) folders.emplace_back(folder);
    };
    std::string_view path = std::getenv("PATH") ? std::getenv("PATH") : "";
    for (std::size_t at = 0; at <= path.size();) {
        std::size_t colon = std::min(path.find(':', at), path.size());
        add(path.substr(at, colon - at));
        at = colon + 1;
    }
    for (const char* folder : {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin", "/usr/bin", "/sbin", "/bin"}) add(folder);
    return folders;
}

std::string LinuxSource::Title() const {
    std::string title;
    for (const std::string& word : words) title += (title.empty() ? "" : " ") + word;
    return title;
}

std::optional<fs::path> FindTool(const std::string& tool, const std::vector<fs::path>& searchPath) {
    for (const fs::path& folder : searchPath) {
        fs::path candidate = folder / tool;
        std::error_code error;
        if (fs::is_regular_file(candidate, error) && access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return std::nullopt;
}

LinuxToolItem::LinuxToolItem(LinuxItemPlan plan, LinuxToolOptions options, std::shared_ptr<CopyFileFilter> filter)
    : plan_(std::move(plan)), options_(std::move(options)), filter_(std::move(filter)) {}

bool LinuxToolItem::IsThere(const LinuxSource& source) const {
    std::error_code error;
    switch (source.kind) {
        case LinuxSource::Kind::kTool: return FindTool(source.words.front(), options_.searchPath).has_value();
        case LinuxSource::Kind::kFolder: return fs::is_directory(source.words.front(), error);
        case LinuxSource::Kind::kFile:
        case LinuxSource::Kind::kKernelLog: return access(source.words.front().c_str(), R_OK) == 0;
    }
    return false;
}

Common::Error LinuxToolItem::Create(const fs::path& folder, FileEntries& entries) {
    const std::wstring archiveName = L"Linux/" + Common::Utf8ToWide(plan_.name);
    const std::wstring missing = L"; '" + archiveName + L"' is not in the report.";
    auto first = std::find_if(plan_.sources.begin(), plan_.sources.end(), [this](const LinuxSource& source) { return IsThere(source); });
    if (first == plan_.sources.end()) {
        std::string names;
        std::set<std::string> named;
        for (const LinuxSource& source : plan_.sources) {
            if (named.insert(source.words.front()).second) names += (names.empty() ? "" : ", ") + source.words.front();
        }
        Common::Log::Info(L"Not found or not readable: " + Common::Utf8ToWide(names) + missing);
        return {};
    }

    CappedOutput output(options_.sizeCap, plan_.log ? CappedOutput::Keep::kNewest : CappedOutput::Keep::kOldest);
    if (plan_.sections) {
        for (const LinuxSource& source : plan_.sources) {
            if (stopped_ || !output.Append("==== " + source.Title() + " ====\n")) break;
            Gather(source, output);
            output.Append("\n");
        }
    } else {
        Gather(*first, output);
    }
    if (stopped_) {
        Common::Log::Info(L"The report was stopped" + missing);
        return {};
    }

    const bool cut = output.Cut();
    const std::uint64_t seen = output.Seen();
    std::string text = output.Take();
    if (cut && plan_.log) {
        text.insert(0, "[cut: only the newest " + SizeText(options_.sizeCap) + " of " + std::to_string(seen) +
                           " bytes are kept; the oldest lines are left out]\n");
    } else if (cut) {
        text += "\n[cut: the file reached its size limit of " + SizeText(options_.sizeCap) + "; the rest is left out]\n";
    }
    fs::path path = folder / Common::PathFromUtf8(Common::WideToUtf8(Common::NewScratchName()));
    std::ofstream file(path, std::ios::binary);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file) {
        Common::Error error = Common::Error::AddErrno(errno ? errno : EIO);
        Common::Log::WriteError(Common::Log::kWarning, "Cannot write '" + Common::WideToUtf8(archiveName) + "':", error);
        return error;
    }
    entries.push_back({path, archiveName, archiveName, plan_.log ? filter_ : nullptr, false, false});
    Common::Log::Info(L"'" + archiveName + L"' added" + (cut ? L", cut at " + Common::Utf8ToWide(SizeText(options_.sizeCap)) : L"") + L".");
    return {};
}

void LinuxToolItem::Gather(const LinuxSource& source, CappedOutput& output) {
    const std::string& name = source.words.front();
    switch (source.kind) {
        case LinuxSource::Kind::kTool: {
            std::optional<fs::path> tool = FindTool(name, options_.searchPath);
            if (!tool) return Note(output, "not run: " + name + " was not found");
            ToolEnd end;
            Common::Log::Debug("Running: " + source.Title());
            std::vector<std::string> arguments(source.words.begin() + 1, source.words.end());
            if (Common::Error error = tool_.Run(*tool, arguments, source.discardErrors, options_.timeLimit, output, end);
                error.Failed()) {
                return Note(output, "not run: " + name + " could not be started: " + Common::WideToUtf8(error.Message()));
            }
            std::string outcome;
            switch (end.how) {
                case ToolEnd::How::kExited:
                    outcome = "ended with exit code " + std::to_string(end.code);
                    if (end.code != 0) Note(output, name + " " + outcome);
                    break;
                case ToolEnd::How::kTimedOut:
                    outcome = "did not end within " + SecondsText(options_.timeLimit) + " and was killed with what it started";
                    Note(output, "cut: " + name + " " + outcome + "; its output until then is above");
                    break;
                case ToolEnd::How::kCapped: outcome = "was killed at the size limit"; break;
                case ToolEnd::How::kStopped: outcome = "was stopped"; break;
            }
            Common::Log::Debug(source.Title() + ": " + outcome);
            return;
        }
        case LinuxSource::Kind::kFile: {
            Common::FileDescriptor file(open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
            if (!file) return Note(output, "not read: " + ErrnoText(errno));
            std::string piece(kReadPiece, '\0');
            for (;;) {
                ssize_t got = read(file.Get(), piece.data(), piece.size());
                if (got < 0 && errno == EINTR) continue;
                if (got < 0) return Note(output, "not read to its end: " + ErrnoText(errno));
                if (got == 0 || !output.Append(std::string_view(piece.data(), static_cast<size_t>(got)))) return;
            }
        }
        case LinuxSource::Kind::kFolder: {
            std::vector<fs::path> files;
            std::error_code error;
            for (const fs::directory_entry& entry : fs::directory_iterator(name, error)) {
                if (entry.symlink_status(error).type() == fs::file_type::regular) files.push_back(entry.path());
            }
            std::sort(files.begin(), files.end());
            for (const fs::path& file : files) {
                std::ifstream stream(file, std::ios::binary);
                std::string value(kFolderValueCap, '\0');
                stream.read(value.data(), static_cast<std::streamsize>(value.size()));
                if (stream.bad()) continue;  // only what this account may read
                value.resize(static_cast<size_t>(stream.gcount()));
                while (!value.empty() && value.back() == '\n') value.pop_back();
                output.Append(file.filename().string() + ": " + value + "\n");
            }
            return;
        }
        case LinuxSource::Kind::kKernelLog: {
            // Without O_NONBLOCK a read at the end of the log waits for the next message.
            Common::FileDescriptor log(open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
            if (!log) return Note(output, "not read: " + ErrnoText(errno));
            const auto deadline = Clock::now() + options_.timeLimit;
            std::string record(8192, '\0');  // a read returns one whole record, at most this long
            while (!stopped_ && Clock::now() < deadline) {
                ssize_t got = read(log.Get(), record.data(), record.size());
                if (got > 0) {
                    output.Append(KernelLogLine(std::string_view(record.data(), static_cast<size_t>(got))));
                } else if (got == 0 || (errno != EINTR && errno != EPIPE)) {
                    // EPIPE: records were overwritten before they were read; the next read goes on after them.
                    break;
                }
            }
            return;
        }
    }
}

void LinuxToolItem::Stop() {
    stopped_ = true;
    tool_.Terminate();
}

LinuxSmartItem::LinuxSmartItem(LinuxToolOptions options, fs::path blockFolder)
    : options_(std::move(options)), blockFolder_(std::move(blockFolder)) {}

Common::Error LinuxSmartItem::Create(const fs::path& folder, FileEntries& entries) {
    const std::wstring none = L"; no 'Linux/smart-*.txt' is in the report.";
    if (!FindTool("smartctl", options_.searchPath)) {
        Common::Log::Info(L"Not found: smartctl" + none);
        return {};
    }
    // Whole disks only: a partition is not listed here, and a loop, device-mapper, md or RAM disk has no
    // device behind it to ask.
    std::vector<std::string> disks;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(blockFolder_, error)) {
        if (fs::exists(entry.path() / "device", error)) disks.push_back(entry.path().filename().string());
    }
    std::sort(disks.begin(), disks.end());
    if (disks.empty()) {
        Common::Log::Info(L"No disk with a device behind it is listed in " + Common::Utf8ToWide(Common::PathToUtf8(blockFolder_)) + none);
        return {};
    }
    for (const std::string& disk : disks) {
        // sysfs writes the '/' of a device's name in a subfolder of /dev as '!' ("cciss!c0d0").
        std::string device = disk, fileName = disk;
        std::replace(device.begin(), device.end(), '!', '/');
        std::replace(fileName.begin(), fileName.end(), '!', '_');
        LinuxItemPlan plan{"smart-" + fileName + ".txt", {{LinuxSource::Kind::kTool, {"smartctl", "-x", "/dev/" + device}}}};
        auto item = std::make_shared<LinuxToolItem>(std::move(plan), options_, nullptr);
        {
            std::lock_guard guard(lock_);
            if (stopped_) break;
            running_ = item;
        }
        item->Create(folder, entries);
    }
    std::lock_guard guard(lock_);
    running_.reset();
    return {};
}

void LinuxSmartItem::Stop() {
    std::lock_guard guard(lock_);
    stopped_ = true;
    if (running_) running_->Stop();
}

}  // namespace SystemReport
