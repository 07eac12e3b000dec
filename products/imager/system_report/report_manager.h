// The report manager: runs the report items in order into a scratch folder, then packs the files they
// named into the zip archive, through each entry's copy filter.
#pragma once

#include <atomic>
#include <filesystem>
#include <mutex>
#include <optional>
#include <vector>

#include "products/imager/system_report/report.h"

namespace SystemReport {

class ReportManager {
public:
    ReportManager() = default;
    ReportManager(const ReportManager&) = delete;
    ReportManager& operator=(const ReportManager&) = delete;
    // Removes the scratch folder if SaveAs did not.
    ~ReportManager();

    void Add(ReportPtr item);
    // Makes the scratch folder (below `scratchParent`, or the system's temporary folder) and runs every item.
    Common::Error Create(std::optional<std::filesystem::path> scratchParent = std::nullopt);
    Common::Error SaveAs(const std::filesystem::path& fileName);
    // From any thread: starts no further item and asks the running one to stop.
    void Stop();

    const FileEntries& Entries() const { return entries_; }
    const std::filesystem::path& ScratchFolder() const { return scratch_; }

private:
    void RemoveScratch();

    std::atomic<bool> canceled_{false};
    FileEntries entries_;
    std::vector<ReportPtr> items_;
    std::mutex runningLock_;
    ReportPtr running_;
    std::filesystem::path scratch_;
};

}  // namespace SystemReport
