// The zip writer: entries are read on the caller's thread in blocks, compressed on worker threads, and
// written in the order they were added; each entry's local header is patched with the CRC and sizes once its
// last block is written, so no data descriptor is needed and every reader sees plain headers.
//
// Memory stays bounded whatever the entries' sizes: the caller reads a block only while the blocks read and
// not yet written fit the budget, and at most kMaxQueuedEntries entries wait with their sources open.
#include "core/file/zip/zip_writer.h"

#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/common/run_files.h"
#include "core/file/zip/deflate_block.h"
#include "core/file/zip/zip_format.h"
#include "core/file/zip/zip_platform.h"
#include "core/file/zip/zip_writer_testing.h"

namespace Zip {

namespace {

using Common::Error;

constexpr std::size_t kBufferSize = 256 * 1024;
constexpr int kDeflateLevel = 6;
// Entries waiting to be written keep their sources open; stdio on Windows allows 512 open files.
constexpr std::size_t kMaxQueuedEntries = 64;

Error ErrnoCause(int code, std::source_location where = std::source_location::current()) {
    return code != 0 ? Error::AddErrno(code, {}, where) : Error{};
}

Error WriteFailure(Error cause, std::source_location where = std::source_location::current()) {
    return Error::Make(Common::Codes::kOpenFile, L"Cannot write an item to the system report.", std::move(cause),
                       where);
}

Error CreateFailure(Error cause, std::source_location where = std::source_location::current()) {
    return Error::Make(Common::Codes::kCreateFile, L"Error occurred while creating the file.", std::move(cause),
                       where);
}

Common::ErrorField TextField(std::string name, std::string text) {
    return {std::move(name), Common::ErrorField::Kind::Text, std::move(text), 0};
}

std::string PathText(const std::filesystem::path& path) { return Common::PathToUtf8(path); }

// Buffers the tail of the archive in memory, so that a small entry's header is patched, or a failed entry
// dropped, without touching the file; beyond the buffer both cost a seek.
class OutputFile {
public:
    OutputFile() { buffer_.reserve(kBufferSize); }

    // stdio buffering is off: this class buffers already, and patches would only flush it. errno tells why
    // the file could not be created.
    bool Open(const std::filesystem::path& path) {
        file_ = Platform::CreateNewFile(path);
        if (file_) std::setvbuf(file_.get(), nullptr, _IONBF, 0);
        return file_ != nullptr;
    }

    std::uint64_t Position() const { return bufferStart_ + buffer_.size(); }

    Error Write(std::string_view bytes) {
        buffer_.append(bytes);
        return buffer_.size() >= kBufferSize ? Flush() : Error{};
    }

    // `bytes` replace bytes written before, from `offset` on.
    Error PatchAt(std::uint64_t offset, std::string_view bytes) {
        if (offset >= bufferStart_) {
            buffer_.replace(static_cast<std::size_t>(offset - bufferStart_), bytes.size(), bytes);
            return {};
        }
        std::uint64_t resume = Position();
        if (Error error = Flush(); error.Failed()) return error;
        if (Error error = SeekFile(offset); error.Failed()) return error;
        if (Error error = WriteFile(bytes); error.Failed()) return error;
        return SeekFile(resume);
    }

    // Drops everything from `offset` on; Close cuts the file to its final length.
    Error RewindTo(std::uint64_t offset) {
        if (offset >= bufferStart_) {
            buffer_.resize(static_cast<std::size_t>(offset - bufferStart_));
            return {};
        }
        buffer_.clear();
        bufferStart_ = offset;
        return SeekFile(offset);
    }

    Error Close() {
        std::uint64_t end = Position();
        if (Error error = Flush(); error.Failed()) return error;
        errno = 0;
        if (!Platform::Truncate(file_.get(), end)) return WriteFailure(ErrnoCause(errno));
        if (std::fclose(file_.release()) != 0) return WriteFailure(ErrnoCause(errno));
        return {};
    }

    void Discard() { file_.reset(); }

private:
    Error Flush() {
        Error error = WriteFile(buffer_);
        bufferStart_ += buffer_.size();
        buffer_.clear();
        return error;
    }

    Error WriteFile(std::string_view bytes) {
        errno = 0;
        if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
            return WriteFailure(ErrnoCause(errno));
        }
        return {};
    }

    Error SeekFile(std::uint64_t offset) {
        errno = 0;
        if (!Platform::SeekTo(file_.get(), offset)) return WriteFailure(ErrnoCause(errno));
        return {};
    }

    Platform::FilePtr file_;
    std::string buffer_;
    std::uint64_t bufferStart_ = 0;
};

using Source = EntrySource;

// Marks the failures of a caller's source, so that they drop the entry and not the archive.
class MarkedSource final : public Source {
public:
    MarkedSource(std::unique_ptr<Source> inner, std::string_view name) : inner_(std::move(inner)), name_(name) {}
    std::uint64_t SizeHint() const override { return inner_->SizeHint(); }
    Error Read(std::span<char> buffer, std::size_t& got) override { return Marked(inner_->Read(buffer, got)); }
    Error Rewind() override { return Marked(inner_->Rewind()); }

private:
    Error Marked(Error error) const {
        return error.Failed() ? WriteFailure(error).WithField(TextField("source", name_)) : error;
    }

    std::unique_ptr<Source> inner_;
    std::string name_;
};

class DiskSource final : public Source {
public:
    static Error Open(const std::filesystem::path& path, std::unique_ptr<DiskSource>& source) {
        errno = 0;
        Platform::FilePtr file = Platform::OpenFile(path, "rb");
        if (!file) return Failure(path);
        std::error_code ignored;
        std::uintmax_t size = std::filesystem::file_size(path, ignored);
        source.reset(new DiskSource(path, std::move(file), ignored ? 0 : size));
        return {};
    }

    std::uint64_t SizeHint() const override { return sizeHint_; }

    Error Read(std::span<char> buffer, std::size_t& got) override {
        errno = 0;
        got = std::fread(buffer.data(), 1, buffer.size(), file_.get());
        return std::ferror(file_.get()) ? Failure(path_) : Error{};
    }

    Error Rewind() override {
        errno = 0;
        std::clearerr(file_.get());
        return Platform::SeekTo(file_.get(), 0) ? Error{} : Failure(path_);
    }

private:
    DiskSource(std::filesystem::path path, Platform::FilePtr file, std::uint64_t sizeHint)
        : path_(std::move(path)), file_(std::move(file)), sizeHint_(sizeHint) {}

    static Error Failure(const std::filesystem::path& path,
                         std::source_location where = std::source_location::current()) {
        return WriteFailure(ErrnoCause(errno, where), where).WithField(TextField("source", PathText(path)));
    }

    std::filesystem::path path_;
    Platform::FilePtr file_;
    std::uint64_t sizeHint_;
};


// Holds the whole text for a transform that needs it, up to a limit, and hands it over at the end.
class WholeTextStream final : public TransformStream {
public:
    explicit WholeTextStream(Transform::Whole whole) : whole_(std::move(whole)) {}

    Error Push(std::string_view bytes, bool last, std::string& stored) override {
        if (text_.size() + bytes.size() > Transform::kWholeTextLimit) {
            return Error::Make(Common::Codes::kOpenFile,
                               L"The text is larger than the " + std::to_wstring(Transform::kWholeTextLimit >> 20) +
                                   L" MiB that can be filtered whole.");
        }
        text_.append(bytes);
        if (!last) return {};
        std::string whole;
        if (Error error = whole_(text_, whole); error.Failed()) return error;
        stored += whole;
        return {};
    }

private:
    Transform::Whole whole_;
    std::string text_;
};

// One block of an entry on its way through the workers. Before `done` the worker that took it owns its
// bytes; after, the writing thread does.
struct Block {
    std::size_t index = 0;
    bool last = false;
    std::string input;        // what was read; kept after compression only where the entry may be stored
    std::string output;       // deflate blocks
    std::uint32_t crc = 0;    // of the bytes the block stands for in the entry, and their count
    std::uint64_t size = 0;
    std::size_t charged = 0;  // bytes counted against the memory budget
    bool done = false;
};

// One entry from its Add call until it is written or dropped.
struct Job {
    Format::Entry entry;
    bool zip64Sizes = false;
    std::unique_ptr<Source> source;  // kept until written, as a ZIP64 retry reads it again
    std::unique_ptr<TransformStream> transform;
    std::deque<std::unique_ptr<Block>> blocks;  // read and not yet written, in order
    std::size_t outstanding = 0;                // blocks with the workers
    bool readDone = false;
    // A worker's failure drops the entry; the writer logs it, as the Add call has returned already.
    Error failure;
    bool returned = false;  // the Add call returned the failure to its caller
    // The transform sees the blocks in order, one worker at a time.
    std::size_t nextTransform = 0;
    // Written so far.
    bool headerWritten = false;
    std::uint64_t written = 0;
};

}  // namespace

Common::Error OpenFileSource(const std::filesystem::path& path, std::unique_ptr<EntrySource>& source) {
    std::unique_ptr<DiskSource> file;
    if (Error error = DiskSource::Open(path, file); error.Failed()) return error;
    source = std::move(file);
    return {};
}

std::unique_ptr<TransformStream> Transform::Start() const {
    if (start_) return start_();
    return std::make_unique<WholeTextStream>(whole_);
}

struct ZipWriter::Impl {
    Impl(std::filesystem::path target, std::filesystem::path temporary, const Format::Limits& zip64Limits,
         const Tuning& settings)
        : target(std::move(target)), temporary(std::move(temporary)), limits(zip64Limits), tuning(settings) {}

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // The file is closed before it is removed, as Windows removes no open file.
    ~Impl() {
        StopWorkers(true);
        if (!ownsTemporary) return;
        out.Discard();
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
    }

    // Apart from the constructor, so that a constructor that throws leaves no file behind.
    Error Open() {
        errno = 0;
        if (!out.Open(temporary)) {
            return CreateFailure(ErrnoCause(errno)).WithField(TextField("path", PathText(temporary)));
        }
        ownsTemporary = true;
        return {};
    }

    static Error ClosedFailure(std::source_location where = std::source_location::current()) {
        return WriteFailure(Error::Make(Common::Codes::kUnexpected, L"The archive is already closed.", {}, where),
                            where);
    }

    static Error AbortedFailure(std::source_location where = std::source_location::current()) {
        return WriteFailure(Error::Make(Common::Codes::kCanceled, L"Canceled.", {}, where), where);
    }

    // Why no entry can be added any more, if that is so.
    Error Unusable() {
        if (aborted) return AbortedFailure();
        if (writeFailure.Failed()) return writeFailure;
        return closed ? ClosedFailure() : Error{};
    }

    // Runs the adding of entry `name`: no exception leaves it, and a failure names the entry.
    template <typename Body>
    Error Guarded(std::string_view name, Body&& body) {
        Error error = Common::CatchErrors([&]() -> Error {
            if (Error unusable = Unusable(); unusable.Failed()) return unusable;
            return body();
        });
        return error.Failed() ? error.WithField(TextField("entry", std::string(name))) : error;
    }

    Format::Entry NewEntry(std::string name, bool folder, std::time_t modified) const {
        std::tm local{};
        Format::Entry entry;
        entry.name = std::move(name);
        entry.folder = folder;
        entry.modified = Format::ToDosDateTime(Platform::ToLocalTime(modified, local) ? local : std::tm{});
        entry.unixModified = Format::ToUnixTime32(modified);
        return entry;
    }

    bool NeedsZip64Sizes(const Format::Entry& entry) const {
        return entry.uncompressedSize >= limits.field || entry.compressedSize >= limits.field;
    }

    // ---- the caller's side: reading entries into blocks ----

    Error AddFile(std::string_view name, std::unique_ptr<Source> source, std::time_t modified,
                  const Transform* transform) {
        std::optional<std::string> stored = Format::NormalizeName(name, false);
        if (!stored) return WriteFailure(Error::AddErrno(EINVAL));
        auto job = std::make_unique<Job>();
        job->entry = NewEntry(std::move(*stored), false, modified);
        // A transform may lengthen the text; it cannot be read again to make room for ZIP64 sizes.
        const std::uint64_t hint = source->SizeHint();
        job->zip64Sizes = transform ? hint >= limits.field / 2 : hint >= limits.field;
        if (transform) job->transform = transform->Start();
        job->source = std::move(source);
        Job& queued = *job;
        if (Error error = Enqueue(std::move(job)); error.Failed()) return error;
        return ReadBlocks(queued);
    }

    Error AddFolder(std::string_view name, std::time_t modified) {
        std::optional<std::string> stored = Format::NormalizeName(name, true);
        if (!stored) return WriteFailure(Error::AddErrno(EINVAL));
        auto job = std::make_unique<Job>();
        job->entry = NewEntry(std::move(*stored), true, modified);
        job->readDone = true;
        return Enqueue(std::move(job));
    }

    Error Enqueue(std::unique_ptr<Job> job) {
        StartWorkers();
        if (Error error = WaitUntil([&] { return jobs.size() < kMaxQueuedEntries; }); error.Failed()) return error;
        std::lock_guard lock(mutex);
        jobs.push_back(std::move(job));
        progress.notify_all();
        return {};
    }

    // Reads the entry block by block and hands each to the workers. A block is known to be the last when
    // the source ends inside it, or when the read after a full block gives nothing.
    Error ReadBlocks(Job& job) {
        std::vector<char>& buffer = readBuffer;
        buffer.resize(tuning.blockSize);
        std::unique_ptr<Block> pending;
        for (std::size_t index = 0;; ++index) {
            // The block held back is charged already; with nothing else in flight it is let through. An entry
            // that a worker gave up stops here: its blocks hold memory until the reading ends and it is dropped.
            Error error = WaitUntil([&] {
                return job.failure.Failed() || inFlight + tuning.blockSize <= tuning.budget ||
                       inFlight <= (pending ? pending->charged : 0);
            });
            if (error.Failed()) return error;
            if (std::lock_guard lock(mutex); job.failure.Failed()) break;
            std::size_t filled = 0;
            for (std::size_t got = 1; got != 0 && filled < buffer.size(); filled += got) {
                error = Common::CatchErrors([&] {
                    return job.source->Read(std::span<char>(buffer).subspan(filled), got);
                });
                if (error.Failed()) {
                    if (pending) Uncharge(pending->charged);
                    return ReadFailure(job, error);
                }
            }
            bool ended = filled < buffer.size();
            if (pending && (filled > 0 || !ended)) Dispatch(job, std::move(pending), false);
            if (filled > 0 || !pending) {
                pending = std::make_unique<Block>();
                pending->index = index;
                pending->input.assign(buffer.data(), filled);
                std::lock_guard lock(mutex);
                pending->charged = filled;
                inFlight += filled;
            }
            if (ended) break;
        }
        if (pending) Dispatch(job, std::move(pending), true);
        std::lock_guard lock(mutex);
        job.readDone = true;
        progress.notify_all();
        return {};
    }

    void Dispatch(Job& job, std::unique_ptr<Block> block, bool last) {
        block->last = last;
        std::lock_guard lock(mutex);
        ++job.outstanding;
        tasks.push_back({&job, block.get()});
        job.blocks.push_back(std::move(block));
        workReady.notify_one();
    }

    // The caller learns of a read failure from its own call; the blocks already read are dropped with the
    // entry, and none of it is written.
    Error ReadFailure(Job& job, Error error) {
        std::lock_guard lock(mutex);
        if (!job.failure.Failed()) job.failure = error;
        job.returned = true;
        job.readDone = true;
        progress.notify_all();
        return error;
    }

    // Writes what is ready while waiting for `ready` (checked under the lock).
    template <typename Ready>
    Error WaitUntil(Ready&& ready) {
        for (;;) {
            if (Error error = Drain(); error.Failed()) return error;
            std::unique_lock lock(mutex);
            if (aborted) return AbortedFailure();
            if (ready()) return {};
            progress.wait(lock, [&] { return aborted || ready() || HeadReady(); });
        }
    }

    // ---- the workers ----

    void StartWorkers() {
        if (!workers.empty()) return;
        for (unsigned i = 0; i < tuning.workers; ++i) workers.emplace_back([this] { Work(); });
    }

    void StopWorkers(bool abort) {
        {
            std::lock_guard lock(mutex);
            stopping = true;
            if (abort) aborted = true;
        }
        workReady.notify_all();
        turns.notify_all();
        progress.notify_all();
        for (std::thread& worker : workers) worker.join();
        workers.clear();
    }

    struct Task {
        Job* job;
        Block* block;
    };

    void Work() {
        BlockDeflater deflater(kDeflateLevel);
        for (;;) {
            Task task{};
            {
                std::unique_lock lock(mutex);
                workReady.wait(lock, [&] { return stopping || !tasks.empty(); });
                if (tasks.empty()) return;
                task = tasks.front();
                tasks.pop_front();
            }
            Error error = Common::CatchErrors([&] { return Process(*task.job, *task.block, deflater); });
            std::lock_guard lock(mutex);
            if (error.Failed() && !task.job->failure.Failed()) task.job->failure = error;
            if (task.job->transform && task.job->nextTransform == task.block->index) {
                ++task.job->nextTransform;  // the block failed before its turn: no later block waits in vain
                turns.notify_all();
            }
            const std::size_t kept = task.block->output.size() + task.block->input.size();
            inFlight = inFlight - task.block->charged + kept;
            task.block->charged = kept;
            task.block->done = true;
            --task.job->outstanding;
            progress.notify_all();
        }
    }

    bool Skipped(const Job& job) {
        std::lock_guard lock(mutex);
        return aborted || job.failure.Failed();
    }

    Error Process(Job& job, Block& block, BlockDeflater& deflater) {
        if (Skipped(job)) return {};
        if (job.transform) {
            {
                std::unique_lock lock(mutex);
                turns.wait(lock, [&] { return aborted || job.failure.Failed() || job.nextTransform == block.index; });
                if (aborted || job.failure.Failed()) return {};
            }
            std::string stored;
            Error error = job.transform->Push(block.input, block.last, stored);
            if (error.Failed()) return error;
            block.input = std::move(stored);
            std::lock_guard lock(mutex);
            ++job.nextTransform;
            turns.notify_all();
        }
        block.crc = Crc32(0, block.input);
        block.size = block.input.size();
        deflater.Compress(block.input, block.last, block.output);
        // Only an entry of one block may turn out smaller stored than deflated, and then its bytes are needed.
        if (block.index != 0 || !block.last || block.output.size() < block.input.size()) std::string().swap(block.input);
        return {};
    }

    // ---- the writing side, on the caller's thread ----

    // Whether the first entry waiting can be written on or dropped. Under the lock.
    bool HeadReady() const {
        if (jobs.empty()) return false;
        const Job& job = *jobs.front();
        if (job.failure.Failed()) return job.readDone && job.outstanding == 0;
        return job.entry.folder || (!job.blocks.empty() && job.blocks.front()->done);
    }

    // Writes the blocks that are ready, in entry order; the first archive write that fails is kept and
    // ends all further work.
    Error Drain() {
        if (writeFailure.Failed()) return writeFailure;
        for (;;) {
            std::unique_ptr<Block> block;
            Job* job = nullptr;
            bool failed = false;
            {
                std::lock_guard lock(mutex);
                if (!HeadReady()) return {};
                job = jobs.front().get();
                failed = job->failure.Failed();
                if (!failed && !job->entry.folder) {
                    block = std::move(job->blocks.front());
                    job->blocks.pop_front();
                }
            }
            Error error = Common::CatchErrors([&]() -> Error {
                if (failed) return Drop(*job);
                if (job->entry.folder) return WriteFolder(*job);
                return WriteBlock(*job, *block);
            });
            if (block) Uncharge(block->charged);
            if (error.Failed()) {
                writeFailure = error;
                StopWorkers(true);
                return error;
            }
        }
    }

    void Uncharge(std::size_t bytes) {
        std::lock_guard lock(mutex);
        inFlight -= bytes;
        progress.notify_all();
    }

    void PopJob() {
        std::unique_ptr<Job> done;
        std::lock_guard lock(mutex);
        done = std::move(jobs.front());
        jobs.pop_front();
        for (const std::unique_ptr<Block>& block : done->blocks) inFlight -= block->charged;
        progress.notify_all();
    }

    Error WriteFolder(Job& job) {
        job.entry.localHeaderOffset = out.Position();
        job.entry.crc = 0;
        if (Error error = out.Write(Format::LocalHeader(job.entry, false)); error.Failed()) return error;
        AddToDirectory(job.entry);
        PopJob();
        return {};
    }

    Error WriteBlock(Job& job, const Block& block) {
        Format::Entry& entry = job.entry;
        if (!job.headerWritten) {
            const bool single = block.index == 0 && block.last;
            entry.method = single && block.output.size() >= block.size ? Format::Method::Store : Format::Method::Deflate;
            entry.localHeaderOffset = out.Position();
            entry.crc = 0;
            if (Error error = out.Write(Format::LocalHeader(entry, job.zip64Sizes)); error.Failed()) return error;
            job.headerWritten = true;
        }
        const std::string& data = entry.method == Format::Method::Store ? block.input : block.output;
        if (Error error = out.Write(data); error.Failed()) return error;
        entry.crc = static_cast<std::uint32_t>(crc32_combine(entry.crc, block.crc, static_cast<z_off_t>(block.size)));
        entry.uncompressedSize += block.size;
        entry.compressedSize += data.size();
        if (!block.last) return {};
        if (!job.zip64Sizes && NeedsZip64Sizes(entry)) return Rewrite(job);
        if (Error error = out.PatchAt(entry.localHeaderOffset, Format::LocalHeader(entry, job.zip64Sizes));
            error.Failed()) {
            return error;
        }
        return Finish(job);
    }

    Error Finish(Job& job) {
        AddToDirectory(job.entry);
        PopJob();
        return {};
    }

    // Drops a failed entry, and logs why where its Add call could not tell.
    Error Drop(Job& job) {
        if (job.headerWritten) {
            if (Error error = out.RewindTo(job.entry.localHeaderOffset); error.Failed()) return error;
        }
        if (!job.returned) {
            const bool source = IsSourceFailure(job.failure);
            Common::Log::WriteError(Common::Log::kError,
                                    "Report file '" + job.entry.name + (source ? "' cannot be read: " : "' is left out: "),
                                    job.failure);
        }
        PopJob();
        return {};
    }

    // The entry outgrew the 4 GiB its size at the start promised (a file that grew, a special file): its
    // local header needs the ZIP64 sizes it has no room for, so it is written again, on this thread.
    Error Rewrite(Job& job) {
        Format::Entry& entry = job.entry;
        if (Error error = out.RewindTo(entry.localHeaderOffset); error.Failed()) return error;
        job.headerWritten = false;
        Error source = job.transform ? WriteFailure(Error::Make(Common::Codes::kOpenFile,
                                                                L"The filtered text outgrew the size of its header."))
                                     : job.source->Rewind();
        if (source.Failed()) {
            job.failure = source;
            return Drop(job);
        }
        entry.method = Format::Method::Deflate;
        entry.crc = 0;
        entry.uncompressedSize = entry.compressedSize = 0;
        if (Error error = out.Write(Format::LocalHeader(entry, true)); error.Failed()) return error;
        job.headerWritten = true;
        const std::uint64_t dataStart = out.Position();
        BlockDeflater deflater(kDeflateLevel);
        std::vector<char>& buffer = readBuffer;
        buffer.resize(tuning.blockSize);
        std::string output;
        for (std::size_t got = 1; got != 0;) {
            if (Error error = job.source->Read(buffer, got); error.Failed()) {
                job.failure = error;
                return Drop(job);
            }
            std::string_view chunk(buffer.data(), got);
            output.clear();
            deflater.Compress(chunk, got == 0, output);
            if (Error error = out.Write(output); error.Failed()) return error;
            entry.crc = Crc32(entry.crc, chunk);
            entry.uncompressedSize += got;
        }
        entry.compressedSize = out.Position() - dataStart;
        if (Error error = out.PatchAt(entry.localHeaderOffset, Format::LocalHeader(entry, true)); error.Failed()) {
            return error;
        }
        return Finish(job);
    }

    void AddToDirectory(const Format::Entry& entry) {
        directory += Format::CentralHeader(entry, limits);
        ++entryCount;
    }

    Error Commit() {
        if (Error error = Unusable(); error.Failed()) return error;
        closed = true;
        if (Error error = WaitUntil([&] { return jobs.empty(); }); error.Failed()) return error;
        StopWorkers(false);
        std::uint64_t directoryOffset = out.Position();
        std::string end = Format::EndRecords(entryCount, directory.size(), directoryOffset, limits);
        if (Error error = out.Write(directory); error.Failed()) return error;
        if (Error error = out.Write(end); error.Failed()) return error;
        if (Error error = out.Close(); error.Failed()) return error;
        if (Error error = Platform::RenameOver(temporary, target); error.Failed()) {
            return CreateFailure(error).WithField(TextField("path", PathText(target)));
        }
        ownsTemporary = false;
        return {};
    }

    void Abort() {
        {
            std::lock_guard lock(mutex);
            aborted = true;
        }
        workReady.notify_all();
        turns.notify_all();
        progress.notify_all();
    }

    std::filesystem::path target;
    std::filesystem::path temporary;
    bool ownsTemporary = false;
    bool closed = false;
    Error writeFailure;
    OutputFile out;
    Format::Limits limits;
    Tuning tuning;
    std::string directory;
    std::uint64_t entryCount = 0;
    std::vector<char> readBuffer;

    // Shared with the workers, under `mutex`.
    std::mutex mutex;
    std::condition_variable workReady;  // tasks queued, or stopping
    std::condition_variable turns;      // a transform may go on with the next block of its entry
    std::condition_variable progress;   // a block done, an entry queued or read, memory freed
    std::deque<std::unique_ptr<Job>> jobs;
    std::deque<Task> tasks;
    std::size_t inFlight = 0;
    bool stopping = false;
    std::atomic<bool> aborted{false};  // read without the lock where an Add call begins
    std::vector<std::thread> workers;
};

ZipWriter::ZipWriter(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ZipWriter::~ZipWriter() = default;

Common::Error ZipWriter::Create(const std::filesystem::path& target, std::unique_ptr<ZipWriter>& writer) {
    return TestAccess::Create(target, Format::Limits{}, Tuning{}, writer);
}

Common::Error TestAccess::Create(const std::filesystem::path& target, const Format::Limits& limits,
                                 std::unique_ptr<ZipWriter>& writer) {
    return Create(target, limits, Tuning{}, writer);
}

Common::Error TestAccess::Create(const std::filesystem::path& target, const Format::Limits& limits,
                                 const Tuning& tuning, std::unique_ptr<ZipWriter>& writer) {
    return Common::CatchErrors([&]() -> Error {
        // Beside the target, so that the rename cannot cross file systems; short, so that a target name at the
        // system's length limit still works; hidden, and named after this process, so that what a killed run
        // leaves is recognised and removed by a later one.
        std::filesystem::path temporary =
            target.parent_path() /
            Common::PathFromUtf8(Common::NewRunFileName(Common::kPartialArchivePrefix, Common::kPartialArchiveSuffix));
        auto impl = std::make_unique<ZipWriter::Impl>(target, temporary, limits, tuning);
        if (Error error = impl->Open(); error.Failed()) return error;
        writer.reset(new ZipWriter(std::move(impl)));
        return {};
    });
}

void ZipWriter::SetWorkerCount(unsigned count) {
    if (impl_->workers.empty()) impl_->tuning.workers = std::max(1u, count);
}

const std::filesystem::path& ZipWriter::TemporaryPath() const { return impl_->temporary; }

Common::Error ZipWriter::AddFile(std::string_view name, std::string_view data, std::time_t modified) {
    return impl_->Guarded(name, [&] {
        // Copied, as the entry is written after this call returns.
        return impl_->AddFile(name, std::make_unique<MemorySource>(std::string(data)), modified, nullptr);
    });
}

Common::Error ZipWriter::AddFileFromDisk(std::string_view name, const std::filesystem::path& source,
                                         std::time_t modified) {
    return impl_->Guarded(name, [&] {
        std::unique_ptr<DiskSource> file;
        if (Error error = DiskSource::Open(source, file); error.Failed()) return error;
        return impl_->AddFile(name, std::move(file), modified, nullptr);
    });
}

Common::Error ZipWriter::AddFromSource(std::string_view name, std::unique_ptr<EntrySource> source,
                                       std::time_t modified, const Transform& transform) {
    return impl_->Guarded(name, [&]() -> Error {
        auto marked = std::make_unique<MarkedSource>(std::move(source), name);
        return impl_->AddFile(name, std::move(marked), modified, transform ? &transform : nullptr);
    });
}

Common::Error ZipWriter::AddFolder(std::string_view name, std::time_t modified) {
    return impl_->Guarded(name, [&] { return impl_->AddFolder(name, modified); });
}

Common::Error ZipWriter::Commit() {
    return Common::CatchErrors([&] { return impl_->Commit(); });
}

void ZipWriter::Abort() { impl_->Abort(); }

bool IsSourceFailure(const Common::Error& error) {
    for (const Common::ErrorField& field : error.Fields()) {
        if (field.name == "source") return true;
    }
    return false;
}

}  // namespace Zip
