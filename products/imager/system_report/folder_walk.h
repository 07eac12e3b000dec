// Walking a folder tree without ever following a link: every entry is opened first, without following a
// link at its name, and then what was opened is examined and read. Checking a name and opening it later
// would let a link swapped in between pull any file of the machine into the report, and the tool runs
// elevated.
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "core/file/zip/entry_source.h"
#include "products/imager/system_report/folder_walk_handle.h"

namespace SystemReport {

using NativeName = std::filesystem::path::string_type;

enum class EntryKind {
    File,
    Folder,
    Link,      // a symbolic link or, on Windows, a junction or mount point: never followed
    Other,     // devices, pipes, sockets: never read
    Missing,   // gone since the listing, or never there
    TooLong,   // past the system's path-length limit
    Failed,    // cannot be opened (denied, or another error: see the error)
};

// Tells files apart whatever their names: the volume and the file's number on it.
struct FileIdentity {
    std::uint64_t volume = 0;
    std::uint64_t file = 0;
    bool operator==(const FileIdentity&) const = default;
};

// The identity of the file at `path` (links followed); nullopt when nothing can be opened there.
std::optional<FileIdentity> IdentityOfPath(const std::filesystem::path& path);

// A regular file, opened; the source of its archive entry.
class OpenFile final : public Zip::EntrySource {
public:
    OpenFile(WalkHandle handle, std::uint64_t size, std::time_t modified);
    std::uint64_t SizeHint() const override { return size_; }
    // Fails where the file ends before the size it had when opened: it was cut short (or rewritten) while
    // it was read, and what was read is not the file. A file that grows is read to its new end.
    Common::Error Read(std::span<char> buffer, std::size_t& got) override;
    Common::Error Rewind() override;
    std::time_t Modified() const { return modified_; }
    std::optional<FileIdentity> Identity() const;
    // The whole file in a string of its size (more if it grew): never twice its size in memory.
    Common::Error ReadAll(std::string& content);
    Common::Error WriteAll(std::string_view data);

private:
    friend class OpenFolder;
    Common::Error ReadSome(std::span<char> buffer, std::size_t& got);
    Common::Error SeekToStart();

    WalkHandle handle_;
    std::uint64_t size_;
    std::uint64_t position_ = 0;
    std::time_t modified_;
};

// What opening a folder's entry gave: a file or a folder when that is what it is.
struct OpenedEntry {
    EntryKind kind = EntryKind::Failed;
    std::unique_ptr<OpenFile> file;
    std::unique_ptr<class OpenFolder> folder;
    Common::Error error;  // for Failed and TooLong
};

// What a "*.for_report" file found in a folder is.
enum class ReportCopyState {
    NotOurs,  // a file of the product like any other
    InUse,    // the scrubbed copy of a run that is going on
    Removed,  // a copy that an ended run left behind, now removed
};

class OpenFolder {
public:
    OpenFolder(WalkHandle handle, std::time_t modified);

    // The folder at `path`, not followed when it is itself a link.
    static OpenedEntry OpenRoot(const std::filesystem::path& path);

    // The names in the folder, without "." and "..", in no particular order.
    Common::Error List(std::vector<NativeName>& names);
    // Opens an entry named by List, never following a link.
    OpenedEntry Open(const NativeName& name);

    // Creates a scrubbed settings copy under `name`: always a new file (never an existing one, never
    // through a link), marked as the tool's own by a fixed modification time and held so that no other
    // run takes it for an abandoned copy while it is in use.
    Common::Error CreateReportCopy(const NativeName& name, std::unique_ptr<OpenFile>& copy);
    // Takes the copy's name away once it has been written; the open copy stays readable. On Windows the
    // copy was made to vanish when its last handle closes, which no kill can prevent.
    void ReleaseReportCopyName(const NativeName& name, const OpenFile& copy);
    // For a "*.for_report" name: removes it when it is a copy that an ended run could not remove.
    ReportCopyState CheckReportCopy(const NativeName& name);

    std::time_t Modified() const { return modified_; }

private:
    WalkHandle handle_;
    std::time_t modified_;
};

}  // namespace SystemReport
