// The entry writer: folders are walked through open handles (see folder_walk.h), settings files pass
// through the scrub, and every name is mapped to a stored name once.
#include "products/imager/system_report/entry_writer.h"

#include <algorithm>
#include <chrono>
#include <system_error>

#include "core/common/strings.h"
#include "products/imager/system_report/filtered_copy.h"
#include "products/imager/system_report/folder_walk.h"
#include "products/imager/system_report/settings_file.h"

namespace fs = std::filesystem;

namespace SystemReport {
namespace {

// Longest name a zip entry can carry.
constexpr std::size_t kMaxStoredPath = 0xFFFF;
constexpr std::string_view kReportCopySuffix = ".for_report";

std::time_t ModifiedTime(const fs::path& path) {
    std::error_code ec;
    auto stamp = fs::last_write_time(path, ec);
    if (ec) return std::time(nullptr);
    auto system = std::chrono::file_clock::to_sys(stamp);
    return std::chrono::system_clock::to_time_t(std::chrono::time_point_cast<std::chrono::system_clock::duration>(system));
}

Common::Error WriteFailure(Common::Error cause) {
    return Common::Error::Make(Common::Codes::kOpenFile, L"Cannot write an item to the system report.",
                               std::move(cause));
}

bool EndsWith(const NativeName& name, std::string_view suffix) {
    return name.size() >= suffix.size() && std::equal(suffix.begin(), suffix.end(), name.end() - suffix.size());
}

}  // namespace

Common::Error EntryWriter::StoreFile(const fs::path& source, const std::string& name, const CopyFileFilter* filter) {
    const std::string stored = names_.Claim(name);
    std::error_code ec;
    if (!fs::is_regular_file(source, ec)) {
        Common::Log::Warning("Report file '" + Common::PathToUtf8(source) + "' is missing; '" + stored +
                             "' is not in the report.");
        return {};
    }
    if (!filter) {
        Common::Error error = zip_.AddFileFromDisk(stored, source, ModifiedTime(source));
        if (error.Failed() && Zip::IsSourceFailure(error)) {
            Common::Log::WriteError(Common::Log::kError, "Report file '" + stored + "' cannot be read: ", error);
            return {};
        }
        return error.Failed() ? WriteFailure(error) : Common::Error();
    }
    std::string filtered;
    if (Common::Error error = FilteredCopyFile(source, *filter, filtered); error.Failed()) {
        // Text that was meant to be redacted and was not must never reach the archive.
        Common::Log::WriteError(Common::Log::kError, "Report file '" + stored + "' is left out: ", error);
        return {};
    }
    return Add(stored, std::make_unique<Zip::MemorySource>(std::move(filtered)), ModifiedTime(source), nullptr);
}

Common::Error EntryWriter::StoreFolder(const fs::path& folder, const std::string& prefix, bool recursive,
                                       const CopyFileFilter* filter) {
    const std::string shown = Common::PathToUtf8(folder.has_filename() ? folder : folder.parent_path());
    OpenedEntry root = OpenFolder::OpenRoot(folder);
    switch (root.kind) {
        case EntryKind::Folder:
            return StoreTree(*root.folder, shown, prefix, recursive, filter);
        case EntryKind::Link:
            // A product folder that is itself a link or junction would bring whatever it points to.
            Common::Log::Warning("Report folder '" + shown + "' is a link and is not followed; '" + prefix +
                                 "' is not in the report.");
            return {};
        case EntryKind::Missing:
            Common::Log::Info("Report folder '" + shown + "' does not exist.");
            return {};
        case EntryKind::TooLong:
            Common::Log::Warning("Report folder '" + shown + "' is past the path-length limit; '" + prefix +
                                 "' is not in the report.");
            return {};
        default:
            Common::Log::WriteError(Common::Log::kWarning, "Report folder '" + shown + "' cannot be opened: ", root.error);
            return {};
    }
}

Common::Error EntryWriter::StoreTree(OpenFolder& folder, const std::string& shown, const std::string& prefix,
                                     bool recursive, const CopyFileFilter* filter) {
    std::vector<NativeName> children;
    if (Common::Error error = folder.List(children); error.Failed()) {
        Common::Log::WriteError(Common::Log::kWarning,
                                "Report folder '" + shown + "' cannot be listed completely: ", error);
    }
    std::sort(children.begin(), children.end());
    for (const NativeName& child : children) {
        Common::Error error = Contained("An entry of '" + prefix + "'",
                                        [&] { return StoreChild(folder, shown, child, prefix, recursive, filter); });
        if (error.Failed()) return error;
    }
    return {};
}

Common::Error EntryWriter::StoreChild(OpenFolder& folder, const std::string& shownFolder, const NativeName& name,
                                      const std::string& prefix, bool recursive, const CopyFileFilter* filter) {
    bool renamed = false;
    const std::string storedName = StoredFileName(name, renamed);
    const std::string shown = shownFolder + "/" + storedName;
    if (EndsWith(name, kReportCopySuffix)) {
        switch (folder.CheckReportCopy(name)) {
            case ReportCopyState::InUse:
                return {};
            case ReportCopyState::Removed:
                Common::Log::Info("Removed '" + shown + "', a settings copy that an earlier run left behind.");
                return {};
            case ReportCopyState::NotOurs:
                break;
        }
    }
    OpenedEntry entry = folder.Open(name);
    if (entry.kind == EntryKind::Link) {
        // A link could pull files from outside the product's folder (a user's private files) into the
        // archive, and a link loop would never end: links are never followed.
        Common::Log::Warning("Link '" + shown + "' is not followed; it is not in the report.");
        return {};
    }
    if (entry.kind == EntryKind::Missing || entry.kind == EntryKind::Other) return {};
    if (entry.kind == EntryKind::Folder && !recursive) return {};
    if (entry.kind == EntryKind::TooLong || prefix.size() + storedName.size() + 1 > kMaxStoredPath) {
        Common::Log::Warning("'" + shown + "' is past the path-length limit; it is not in the report.");
        return {};
    }
    if (entry.kind == EntryKind::Failed) {
        // An unreadable sub-folder too: it is not stored as if it were empty.
        Common::Log::WriteError(Common::Log::kError, "Report file or folder '" + shown + "' is left out, as it cannot be opened: ",
                                entry.error);
        return {};
    }
    const bool isFolder = entry.kind == EntryKind::Folder;
    const std::string stored = names_.Claim(prefix + storedName + (isFolder ? "/" : ""));
    if (renamed || stored != prefix + storedName + (isFolder ? "/" : "")) {
        Common::Log::Info("The name of '" + shown + "' cannot be stored as it is; it is stored as '" + stored + "'.");
    }
    if (isFolder) {
        if (auto error = zip_.AddFolder(stored, entry.folder->Modified()); error.Failed()) return WriteFailure(error);
        return StoreTree(*entry.folder, shown, stored, true, filter);
    }
    if (isOwn_ && isOwn_(*entry.file)) {
        // A target inside a product folder would otherwise be packed into itself.
        Common::Log::Info("'" + shown + "' is this run's own archive; it is not stored in itself.");
        return {};
    }
    if (IsSettingsFile(fs::path(name))) return StoreSettings(folder, name, *entry.file, stored, filter);
    const std::time_t modified = entry.file->Modified();
    return Add(stored, std::move(entry.file), modified, filter);
}

// A settings file is stored through a scrubbed copy beside it; where that folder cannot be written the
// scrubbed text is stored from memory, so the passwords never reach the archive either way.
Common::Error EntryWriter::StoreSettings(OpenFolder& folder, const NativeName& name, OpenFile& file,
                                         const std::string& stored, const CopyFileFilter* filter) {
    std::string text;
    if (Common::Error error = file.ReadAll(text); error.Failed()) {
        Common::Log::WriteError(Common::Log::kError, "Settings file '" + stored + "' cannot be read: ", error);
        return {};
    }
    RemoveSecretSettings(text);
    const NativeName copyName = name + NativeName(kReportCopySuffix.begin(), kReportCopySuffix.end());
    std::unique_ptr<OpenFile> copy;
    Common::Error made = folder.CreateReportCopy(copyName, copy);
    if (made.Failed() && folder.CheckReportCopy(copyName) == ReportCopyState::Removed) {
        made = folder.CreateReportCopy(copyName, copy);
    }
    if (made.Succeeded()) {
        made = copy->WriteAll(text);
        folder.ReleaseReportCopyName(copyName, *copy);
    }
    if (made.Failed()) {
        Common::Log::WriteError(Common::Log::kDebug, "The scrubbed copy of '" + stored + "' is kept in memory: ", made);
        return Add(stored, std::make_unique<Zip::MemorySource>(std::move(text)), file.Modified(), filter);
    }
    std::string().swap(text);
    return Add(stored, std::move(copy), file.Modified(), filter);
}

Common::Error EntryWriter::Add(const std::string& stored, std::unique_ptr<Zip::EntrySource> source, std::time_t modified,
                               const CopyFileFilter* filter) {
    // The filter runs on the archive's workers, streaming where it can; one that fails or throws there
    // loses the file, never the archive.
    Common::Error error =
        zip_.AddFromSource(stored, std::move(source), modified, filter ? FilterTransform(*filter) : Zip::Transform());
    if (error.Failed() && Zip::IsSourceFailure(error)) {
        // Also text that was meant to be redacted and could not be: it must never reach the archive.
        Common::Log::WriteError(Common::Log::kError, "Report file '" + stored + "' is left out: ", error);
        return {};
    }
    return error.Failed() ? WriteFailure(error) : Common::Error();
}

}  // namespace SystemReport
