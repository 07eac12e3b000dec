// The report manager: item loop, cancel, and packing of the named files into the archive.
#include "products/imager/system_report/report_manager.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>

#include "core/common/log.h"
#include "core/common/run_files.h"
#include "core/common/strings.h"
#include "products/imager/system_report/filtered_copy.h"
#include "products/imager/system_report/link_check.h"
#include "products/imager/system_report/settings_file.h"

namespace fs = std::filesystem;

namespace SystemReport {
namespace {

std::time_t ModifiedTime(const fs::path& path) {
    std::error_code ec;
    auto stamp = fs::last_write_time(path, ec);
    if (ec) return std::time(nullptr);
    auto system = std::chrono::file_clock::to_sys(stamp);
    return std::chrono::system_clock::to_time_t(std::chrono::time_point_cast<std::chrono::system_clock::duration>(system));
}

// Archive names use '/' between folders; items may write either separator.
std::string ArchiveName(std::wstring_view name) {
    std::string text = Common::WideToUtf8(name);
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

Common::Error WriteFailure(Common::Error cause) {
    return Common::Error::Make(Common::Codes::kOpenFile, L"Cannot write an item to the system report.",
                               std::move(cause));
}

// A file of the tool's own that goes however the code that made it ends.
struct RemovedAtEnd {
    fs::path path;
    ~RemovedAtEnd() {
        std::error_code ec;
        fs::remove(path, ec);
    }
};

// Stores files and folders. Problems with a source (missing, unreadable, unfilterable, a link) lose only
// that file or folder and are logged; a failing archive write fails the save.
class EntryWriter {
public:
    explicit EntryWriter(Zip::ZipWriter& zip) : zip_(zip) {}

    Common::Error StoreFile(const fs::path& source, const std::string& name, const CopyFileFilter* filter) {
        std::error_code ec;
        if (!fs::is_regular_file(source, ec)) {
            Common::Log::Warning("Report file '" + Common::PathToUtf8(source) + "' is missing; '" + name +
                                 "' is not in the report.");
            return {};
        }
        if (IsSettingsFile(source)) return StoreSettings(source, name, filter);
        return Store(source, name, filter, ModifiedTime(source));
    }

    Common::Error StoreFolder(const fs::path& folder, const std::string& prefix, bool recursive,
                              const CopyFileFilter* filter) {
        // A product folder that is itself a link or junction would bring whatever it points to.
        if (IsLink(folder)) {
            Common::Log::Warning("Report folder '" + Common::PathToUtf8(folder) + "' is a link and is not followed; '" +
                                 prefix + "' is not in the report.");
            return {};
        }
        std::error_code ec;
        if (!fs::is_directory(folder, ec)) {
            Common::Log::Info("Report folder '" + Common::PathToUtf8(folder) + "' does not exist.");
            return {};
        }
        std::vector<fs::directory_entry> children;
        for (fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec), end;
             !ec && it != end; it.increment(ec)) {
            children.push_back(*it);
        }
        if (ec) Common::Log::Warning("Report folder '" + Common::PathToUtf8(folder) + "' cannot be listed: " + ec.message());
        std::sort(children.begin(), children.end(),
                  [](const fs::directory_entry& a, const fs::directory_entry& b) { return a.path() < b.path(); });
        for (const fs::directory_entry& child : children) {
            Common::Error error = Contained("An entry of '" + prefix + "'",
                                            [&] { return StoreChild(child, prefix, recursive, filter); });
            if (error.Failed()) return error;
        }
        return {};
    }

    // Runs the storing of one file or folder. An exception (a name that cannot be converted, a file too
    // large for memory, a filter that throws) loses only that part, with an error line; a failing
    // archive write is returned, as it fails the save.
    template <typename Body>
    static Common::Error Contained(const std::string& what, Body&& body) {
        Common::Error result;
        Common::Error thrown = Common::CatchErrors([&] { result = body(); });
        if (thrown.Failed()) {
            Common::Log::WriteError(Common::Log::kError, what + " is left out: ", thrown);
            return {};
        }
        return result;
    }

private:
    Common::Error StoreChild(const fs::directory_entry& child, const std::string& prefix, bool recursive,
                             const CopyFileFilter* filter) {
        const fs::path& path = child.path();
        std::string name = prefix + Common::PathToUtf8(path.filename());
        // A link could pull files from outside the product's folder (a user's private files) into the
        // archive, and a link loop would never end: links are never followed.
        if (IsLink(path)) {
            Common::Log::Warning("Link '" + Common::PathToUtf8(path) + "' is not followed; it is not in the report.");
            return {};
        }
        if (path.extension() == ".for_report") return {};
        std::error_code ec;
        if (child.is_directory(ec)) {
            if (!recursive) return {};
            if (auto error = zip_.AddFolder(name + "/", ModifiedTime(path)); error.Failed()) return WriteFailure(error);
            return StoreFolder(path, name + "/", true, filter);
        }
        if (child.is_regular_file(ec)) return StoreFile(path, name, filter);
        return {};
    }

    // A settings file is stored through a scrubbed copy beside it; where that folder cannot be written
    // the scrubbed text is stored from memory, so the passwords never reach the archive either way.
    Common::Error StoreSettings(const fs::path& source, const std::string& name, const CopyFileFilter* filter) {
        std::string text;
        if (auto error = ReadWholeFile(source, text); error.Failed()) {
            Common::Log::WriteError(Common::Log::kError, "Settings file '" + name + "' cannot be read: ", error);
            return {};
        }
        std::string scrubbed = RemoveSecretSettings(text);
        std::time_t modified = ModifiedTime(source);
        if (auto copy = WriteReportCopyOfSettings(source, scrubbed)) {
            const RemovedAtEnd removed{*copy};
            return Store(*copy, name, filter, modified);
        }
        return StoreText(std::move(scrubbed), name, filter, modified);
    }

    Common::Error Store(const fs::path& source, const std::string& name, const CopyFileFilter* filter, std::time_t modified) {
        if (!filter) {
            Common::Error error = zip_.AddFileFromDisk(name, source, modified);
            if (error.Failed() && Zip::IsSourceFailure(error)) {
                Common::Log::WriteError(Common::Log::kError, "Report file '" + name + "' cannot be read: ", error);
                return {};
            }
            return error.Failed() ? WriteFailure(error) : Common::Error();
        }
        std::string filtered;
        if (Common::Error error = FilteredCopyFile(source, *filter, filtered); error.Failed()) {
            // Text that was meant to be redacted and was not must never reach the archive.
            Common::Log::WriteError(Common::Log::kError, "Report file '" + name + "' is left out: ", error);
            return {};
        }
        return StoreText(std::move(filtered), name, nullptr, modified);
    }

    Common::Error StoreText(std::string text, const std::string& name, const CopyFileFilter* filter, std::time_t modified) {
        if (filter) {
            std::string filtered;
            if (auto error = filter->Filter(text, filtered); error.Failed()) {
                Common::Log::WriteError(Common::Log::kError, "Report file '" + name + "' cannot be filtered and is left out: ", error);
                return {};
            }
            text = std::move(filtered);
        }
        if (auto error = zip_.AddFile(name, text, modified); error.Failed()) return WriteFailure(error);
        return {};
    }

    Zip::ZipWriter& zip_;
};

}  // namespace

ReportManager::~ReportManager() {
    DiscardArchive();
    RemoveScratch();
}

void ReportManager::Add(ReportPtr item) { items_.push_back(std::move(item)); }

Common::Error ReportManager::OpenTarget(const fs::path& fileName) {
    DiscardArchive();
    Common::RemoveStaleRunFiles(fileName.parent_path().empty() ? fs::path(".") : fileName.parent_path(),
                                Common::kPartialArchivePrefix, Common::kPartialArchiveSuffix);
    std::error_code ec;
    fs::file_status status = fs::status(fileName, ec);
    Common::Error refused;
    // Write-then-rename would replace a read-only file without asking, and fail only at the very end on a
    // folder.
    if (fs::is_directory(status)) {
        refused = Common::Error::AddErrno(EISDIR);
    } else if (fs::exists(status) &&
               (status.permissions() & (fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write)) ==
                   fs::perms::none) {
        refused = Common::Error::AddErrno(EACCES);
    }
    std::unique_ptr<Zip::ZipWriter> archive;
    if (refused.Failed()) {
        refused = refused.WithField({"path", Common::ErrorField::Kind::Text, Common::PathToUtf8(fileName), 0});
    } else {
        refused = Zip::ZipWriter::Create(fileName, archive);
    }
    if (refused.Failed()) {
        return Common::Error::Make(Common::Codes::kCreateFile, L"Error occurred while creating the file.", refused);
    }
    std::lock_guard guard(runningLock_);
    archive_ = std::move(archive);
    target_ = fileName;
    return {};
}

Common::Error ReportManager::Create(std::optional<fs::path> scratchParent) {
    entries_.clear();
    RemoveScratch();
    std::error_code ec;
    fs::path parent = scratchParent ? *scratchParent : fs::temp_directory_path(ec);
    if (!ec) Common::RemoveStaleRunFiles(parent, Common::kScratchPrefix);
    fs::path scratch;
    if (!ec) ec = Common::MakePrivateRunFolder(parent, Common::kScratchPrefix, scratch);
    if (ec) {
        Common::Log::Error("Cannot make the scratch folder in '" + Common::PathToUtf8(parent) + "': " + ec.message());
        return Common::Error::Make(Common::Codes::kOpenFile, L"Error occurred while opening the file.");
    }
    scratch_ = scratch;
    for (const ReportPtr& item : items_) {
        if (canceled_) break;
        {
            std::lock_guard guard(runningLock_);
            running_ = item;
        }
        // An item's failure is its own: it has logged it, and the next item runs.
        Common::Error error = Common::CatchErrors([&] { return item->Create(scratch_, entries_); });
        if (error.Failed()) Common::Log::WriteError(Common::Log::kWarning, "A report item failed: ", error);
        std::lock_guard guard(runningLock_);
        running_.reset();
    }
    if (canceled_) return Canceled();
    return {};
}

Common::Error ReportManager::SaveAs(const fs::path& fileName) {
    if (canceled_) return Canceled();
    if (!archive_ || target_ != fileName) {
        if (Common::Error error = OpenTarget(fileName); error.Failed()) {
            RemoveScratch();
            return error;
        }
    }
    Common::Error result;
    EntryWriter writer(*archive_);
    for (const FileEntry& entry : entries_) {
        if (canceled_) break;
        const std::string name = ArchiveName(entry.archiveName);
        result = EntryWriter::Contained("Report entry '" + name + "'", [&] {
            return entry.folder ? writer.StoreFolder(entry.source, name.empty() || name.back() == '/' ? name : name + "/",
                                                     entry.recursive, entry.filter.get())
                                : writer.StoreFile(entry.source, name, entry.filter.get());
        });
        if (result.Failed()) break;
    }
    if (result.Succeeded() && !canceled_) {
        if (Common::Error error = archive_->Commit(); error.Failed()) result = WriteFailure(error);
    }
    // A stop makes the archive refuse entries, which reads as a write failure: the cancel is the reason.
    if (canceled_) return Canceled();
    DiscardArchive();
    RemoveScratch();
    return result;
}

void ReportManager::Stop() {
    canceled_ = true;
    std::lock_guard guard(runningLock_);
    if (running_) running_->Stop();
    if (archive_) archive_->Abort();
}

bool ReportManager::IsOwnFile(const fs::path& path) const {
    std::lock_guard guard(runningLock_);
    if (!archive_) return false;
    // Compared as files, not as names: a relative target, another spelling or a link to it are the same file.
    for (const fs::path* own : {&target_, &archive_->TemporaryPath()}) {
        std::error_code ec;
        if (fs::equivalent(path, *own, ec)) return true;
    }
    return false;
}

Common::Error ReportManager::Canceled() {
    DiscardArchive();
    RemoveScratch();
    return Common::Error::Make(Common::Codes::kCanceled, L"Canceled.");
}

void ReportManager::DiscardArchive() {
    std::unique_ptr<Zip::ZipWriter> archive;
    {
        std::lock_guard guard(runningLock_);
        archive = std::move(archive_);
        target_.clear();
    }
}

void ReportManager::RemoveScratch() {
    if (scratch_.empty()) return;
    std::error_code ec;
    fs::remove_all(scratch_, ec);
    if (ec) Common::Log::Warning("Scratch folder '" + Common::PathToUtf8(scratch_) + "' cannot be removed: " + ec.message());
    scratch_.clear();
}

}  // namespace SystemReport
