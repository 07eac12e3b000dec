// A zip archive writer over zlib: deflate, CRC-32, folder entries, UTF-8 names, ZIP64 where needed.
// The archive is written to a temporary file beside the target and renamed over it only by Commit, so
// that a run that fails never destroys an existing archive.
//
// Entries are compressed on worker threads and written in the order they were added. The Add calls read
// their source before they return, but compress and write later: their error is a refused name, a source
// that cannot be opened or read (IsSourceFailure), or a failed archive write, which stays and fails every
// later call. A transform that fails, or a worker that runs out of memory, drops that entry whole and logs
// "Report file '<name>' is left out: ..." itself; Commit waits for every entry.
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "core/common/error.h"
#include "core/file/zip/entry_source.h"

namespace Zip {

struct TestAccess;

class ZipWriter {
public:
    // Fails with code 0x4000a when the temporary file beside `target` cannot be created.
    static Common::Error Create(const std::filesystem::path& target, std::unique_ptr<ZipWriter>& writer);

    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;
    // Without a successful Commit the temporary file is removed and the target is left as it was.
    ~ZipWriter();

    // `name` is UTF-8 with '/' between folders (a '\\' is turned into '/', leading '/' are dropped; an empty
    // name or a ".." component is refused); `modified` is stored as a DOS time stamp in local time and,
    // exactly, in an extended-timestamp field. Errors carry code 0x40007; a failed entry leaves no trace.
    Common::Error AddFile(std::string_view name, std::string_view data, std::time_t modified);
    // Streams a file from disk in bounded memory; its size need not be known beforehand. An entry of one
    // block that deflate does not make smaller is stored as it is; a larger one keeps such blocks stored
    // inside its deflate stream. The file is read a second time when it outgrows the 4 GiB that its size at
    // the start promised.
    Common::Error AddFileFromDisk(std::string_view name, const std::filesystem::path& source, std::time_t modified);
    // Streams an entry from a source the caller opened, through `transform` when one is given (on a worker
    // thread; whatever it refers to must live until Commit or the writer's end). A failure of the source
    // carries the field "source" (see IsSourceFailure) and leaves no trace of the entry.
    Common::Error AddFromSource(std::string_view name, std::unique_ptr<EntrySource> source, std::time_t modified,
                                const Transform& transform = {});
    // A folder entry ("name/"): keeps empty folders visible in the archive.
    Common::Error AddFolder(std::string_view name, std::time_t modified);
    // Writes the central directory and renames the temporary file over the target (code 0x4000a when that
    // rename fails). The writer takes no entry after Commit, whether it succeeded or not.
    Common::Error Commit();
    // Where the archive is written until Commit renames it.
    const std::filesystem::path& TemporaryPath() const;

    // Entries are compressed on `count` threads (at least one); by default as many as the processor has
    // cores, and at least two. Only before the first entry.
    void SetWorkerCount(unsigned count);
    // Gives the archive up, from any thread: work in flight stops, the calls waiting on it and every later
    // one fail with "Canceled.", and the temporary file goes with the writer.
    void Abort();

private:
    friend struct TestAccess;
    struct Impl;
    explicit ZipWriter(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

// True when an AddFileFromDisk failure came from the source (missing, unreadable, vanished): that entry
// is dropped and the archive is still good, so the caller may go on with the next entry.
bool IsSourceFailure(const Common::Error& error);

}  // namespace Zip
