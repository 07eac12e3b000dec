// The interface of a report item and the file entries that items hand to the report manager.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "products/imager/system_report/copy_file_filter.h"

namespace SystemReport {

// One file, or one folder, that goes into the archive.
struct FileEntry {
    std::filesystem::path source;              // a file in the scratch folder, or any folder on disk
    std::wstring archiveName;                  // name inside the archive; '\\' or '/' separate folders
    std::wstring title;
    std::shared_ptr<CopyFileFilter> filter;    // applied to every file of the entry when set
    bool folder = false;                       // the entry names a folder: its files are stored below archiveName
    bool recursive = false;                    // with `folder`: sub-folders are stored too
};

using FileEntries = std::vector<FileEntry>;

class Report {
public:
    virtual ~Report() = default;
    // Writes this item's files into `folder` and appends an entry for each of them to `entries`.
    virtual Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) = 0;
    // Asks a running Create, from another thread, to end as soon as it can.
    virtual void Stop() {}
};

using ReportPtr = std::shared_ptr<Report>;

}  // namespace SystemReport
