// The report manager: item loop, cancel, and packing of the named files into the archive.
#include "products/imager/system_report/report_manager.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "core/common/log.h"
#include "core/common/run_files.h"
#include "core/common/strings.h"
#include "core/file/zip/zip_writer.h"
#include "products/imager/system_report/entry_writer.h"
#include "products/imager/system_report/folder_walk.h"

namespace fs = std::filesystem;

namespace SystemReport {
namespace {

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
    // The target (an older archive there) and the archive being written, known by identity: a target inside
    // a product folder is met by the walk under any spelling.
    std::vector<FileIdentity> own;
    for (const fs::path& path : {target_, archive_->TemporaryPath()}) {
        if (auto identity = IdentityOfPath(path)) own.push_back(*identity);
    }
    EntryWriter writer(*archive_, [&own](const OpenFile& file) {
        auto identity = file.Identity();
        return identity && std::find(own.begin(), own.end(), *identity) != own.end();
    });
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
