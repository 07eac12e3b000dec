// The report manager: item loop, cancel, and packing of the named files into the archive.
#include "products/imager/system_report/report_manager.h"

#include <algorithm>
#include <system_error>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/common/uuid.h"
#include "core/file/zip/zip_writer.h"
#include "products/imager/system_report/entry_writer.h"

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

ReportManager::~ReportManager() { RemoveScratch(); }

void ReportManager::Add(ReportPtr item) { items_.push_back(std::move(item)); }

Common::Error ReportManager::Create(std::optional<fs::path> scratchParent) {
    entries_.clear();
    RemoveScratch();
    std::error_code ec;
    fs::path parent = scratchParent ? *scratchParent : fs::temp_directory_path(ec);
    fs::path scratch = parent / (L"SystemReport-" + Common::NewScratchName());
    if (ec || !fs::create_directory(scratch, ec) || ec) {
        Common::Log::Error("Cannot make the scratch folder '" + Common::PathToUtf8(scratch) + "': " + ec.message());
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
    if (canceled_) return Common::Error::Make(Common::Codes::kCanceled, L"Canceled.");
    return {};
}

Common::Error ReportManager::SaveAs(const fs::path& fileName) {
    std::unique_ptr<Zip::ZipWriter> zip;
    if (Common::Error error = Zip::ZipWriter::Create(fileName, zip); error.Failed()) {
        return Common::Error::Make(Common::Codes::kCreateFile, L"Error occurred while creating the file.", error);
    }
    EntryWriter writer(*zip);
    for (const FileEntry& entry : entries_) {
        const std::string name = ArchiveName(entry.archiveName);
        Common::Error error = EntryWriter::Contained("Report entry '" + name + "'", [&] {
            return entry.folder ? writer.StoreFolder(entry.source, name.empty() || name.back() == '/' ? name : name + "/",
                                                     entry.recursive, entry.filter.get())
                                : writer.StoreFile(entry.source, name, entry.filter.get());
        });
        if (error.Failed()) return error;
    }
    if (Common::Error error = zip->Commit(); error.Failed()) return WriteFailure(error);
    RemoveScratch();
    return {};
}

void ReportManager::Stop() {
    canceled_ = true;
    std::lock_guard guard(runningLock_);
    if (running_) running_->Stop();
}

void ReportManager::RemoveScratch() {
    if (scratch_.empty()) return;
    std::error_code ec;
    fs::remove_all(scratch_, ec);
    if (ec) Common::Log::Warning("Scratch folder '" + Common::PathToUtf8(scratch_) + "' cannot be removed: " + ec.message());
    scratch_.clear();
}

}  // namespace SystemReport
