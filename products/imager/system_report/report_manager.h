// The report manager: runs the report items in order into a scratch folder, then packs the files they
// named into the zip archive, through each entry's copy filter.
#pragma once

#include <atomic>
#include <filesystem>
#include <mutex>
#include <optional>
#include <vector>

#include "core/file/zip/zip_writer.h"
#include "products/imager/system_report/report.h"

namespace SystemReport {

class ReportManager {
public:
    ReportManager() = default;
    ReportManager(const ReportManager&) = delete;
    ReportManager& operator=(const ReportManager&) = delete;
    // Removes the scratch folder and the unfinished archive if SaveAs did not.
    ~ReportManager();

    void Add(ReportPtr item);
    // Checks the target and creates the archive's temporary file beside it, so that a target that cannot be
    // written fails at once, before anything is collected: a folder, a read-only file, or a place where no
    // file can be made give 0x4000a. Partial archives that ended runs left there are removed first.
    Common::Error OpenTarget(const std::filesystem::path& fileName);
    // Makes a private scratch folder (below `scratchParent`, or the system's temporary folder), after removing
    // the scratch folders of ended runs there, and runs every item.
    Common::Error Create(std::optional<std::filesystem::path> scratchParent = std::nullopt);
    // Opens the target unless OpenTarget did, stores the entries and renames the archive over the target.
    // The scratch folder is gone afterwards, and so is the temporary archive unless it became the target.
    Common::Error SaveAs(const std::filesystem::path& fileName);
    // From any thread: starts no further item and asks the running one to stop; during SaveAs the archive
    // takes no further entry. The run then ends with "Canceled." (0x4000f) and removes what it made.
    void Stop();

    // True for the run's own files (the target and the archive being written), which a folder walk must
    // never store: a target inside a product folder would otherwise be packed into itself.
    bool IsOwnFile(const std::filesystem::path& path) const;

    const FileEntries& Entries() const { return entries_; }
    const std::filesystem::path& ScratchFolder() const { return scratch_; }

private:
    Common::Error Canceled();
    void RemoveScratch();
    void DiscardArchive();

    std::atomic<bool> canceled_{false};
    FileEntries entries_;
    std::vector<ReportPtr> items_;
    // Guards `running_` and `archive_` against Stop.
    mutable std::mutex runningLock_;
    ReportPtr running_;
    std::unique_ptr<Zip::ZipWriter> archive_;
    std::filesystem::path target_;
    std::filesystem::path scratch_;
};

}  // namespace SystemReport
