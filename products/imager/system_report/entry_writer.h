// Storing the report's file and folder entries into the archive: the folder walk, the settings scrub and
// the names files get in the archive.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "core/common/error.h"
#include "core/common/log.h"
#include "core/file/zip/zip_writer.h"
#include "products/imager/system_report/archive_name.h"
#include "products/imager/system_report/copy_file_filter.h"

namespace SystemReport {

class OpenFile;
class OpenFolder;

// Problems with a source (missing, unreadable, unfilterable, a link, a name that cannot be stored as it
// is) lose at most that file or folder and are logged; only a failing archive write is returned, as it
// fails the save.
class EntryWriter {
public:
    // `isOwn` tells the run's own files (its archive, old and new), which a folder walk never stores.
    explicit EntryWriter(Zip::ZipWriter& zip, std::function<bool(const OpenFile&)> isOwn = {})
        : zip_(zip), isOwn_(std::move(isOwn)) {}

    // A file of the run's own scratch folder, stored under `name`.
    Common::Error StoreFile(const std::filesystem::path& source, const std::string& name, const CopyFileFilter* filter);
    // A folder's files (and, when `recursive`, its sub-folders) below `prefix` ("" or ending with '/').
    // A folder that is itself a link is not followed.
    Common::Error StoreFolder(const std::filesystem::path& folder, const std::string& prefix, bool recursive,
                              const CopyFileFilter* filter);

    // Runs the storing of one file or folder. An exception (a file too large for memory, a filter that
    // throws) loses only that part, with an error line; a failing archive write is returned.
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
    // `shown` names the folder in log lines: its path with the children's names as they are stored.
    Common::Error StoreTree(OpenFolder& folder, const std::string& shown, const std::string& prefix, bool recursive,
                            const CopyFileFilter* filter);
    Common::Error StoreChild(OpenFolder& folder, const std::string& shownFolder, const std::filesystem::path::string_type& name,
                             const std::string& prefix, bool recursive, const CopyFileFilter* filter);
    Common::Error StoreSettings(OpenFolder& folder, const std::filesystem::path::string_type& name, OpenFile& file,
                                const std::string& stored, const CopyFileFilter* filter);
    Common::Error Add(const std::string& stored, std::unique_ptr<Zip::EntrySource> source, std::time_t modified,
                      const CopyFileFilter* filter);

    Zip::ZipWriter& zip_;
    std::function<bool(const OpenFile&)> isOwn_;
    StoredNames names_;
};

}  // namespace SystemReport
