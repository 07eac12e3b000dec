// The zip writer: each entry is streamed through raw deflate into the temporary file, then its local header
// is patched with the CRC and sizes, so no data descriptor is needed and every reader sees plain headers.
#include "core/file/zip/zip_writer.h"

#include <zlib.h>

#include <atomic>
#include <cerrno>
#include <new>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "core/common/strings.h"
#include "core/common/run_files.h"
#include "core/file/zip/zip_format.h"
#include "core/file/zip/zip_platform.h"
#include "core/file/zip/zip_writer_testing.h"

namespace Zip {

namespace {

using Common::Error;

constexpr std::size_t kBufferSize = 256 * 1024;
constexpr int kDeflateLevel = 6;
constexpr int kMemoryLevel = 8;

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

// One raw deflate stream (no zlib header: the zip headers frame the data), reset for every entry.
class Deflater {
public:
    Deflater() : output_(kBufferSize) {
        if (deflateInit2(&stream_, kDeflateLevel, Z_DEFLATED, -MAX_WBITS, kMemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;
    ~Deflater() { deflateEnd(&stream_); }

    void Reset() { deflateReset(&stream_); }

    // `finish` ends the stream after `input`.
    Error Deflate(std::span<const char> input, bool finish, OutputFile& out) {
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input.data()));
        stream_.avail_in = static_cast<uInt>(input.size());
        do {
            stream_.next_out = output_.data();
            stream_.avail_out = static_cast<uInt>(output_.size());
            if (deflate(&stream_, finish ? Z_FINISH : Z_NO_FLUSH) == Z_STREAM_ERROR) {
                return WriteFailure(Error::Make(Common::Codes::kUnexpected, L"The deflate stream failed."));
            }
            std::size_t produced = output_.size() - stream_.avail_out;
            std::string_view bytes(reinterpret_cast<const char*>(output_.data()), produced);
            if (Error error = out.Write(bytes); error.Failed()) return error;
        } while (stream_.avail_out == 0);
        return {};
    }

private:
    z_stream stream_{};
    std::vector<Bytef> output_;
};

using Source = EntrySource;

class MemorySource final : public Source {
public:
    explicit MemorySource(std::string_view data) : data_(data) {}
    std::uint64_t SizeHint() const override { return data_.size(); }
    Error Read(std::span<char> buffer, std::size_t& got) override {
        got = data_.copy(buffer.data(), buffer.size(), position_);
        position_ += got;
        return {};
    }
    Error Rewind() override {
        position_ = 0;
        return {};
    }

private:
    std::string_view data_;
    std::size_t position_ = 0;
};

// Marks the failures of a caller's source, so that they drop the entry and not the archive.
class MarkedSource final : public Source {
public:
    MarkedSource(Source& inner, std::string_view name) : inner_(inner), name_(name) {}
    std::uint64_t SizeHint() const override { return inner_.SizeHint(); }
    Error Read(std::span<char> buffer, std::size_t& got) override { return Marked(inner_.Read(buffer, got)); }
    Error Rewind() override { return Marked(inner_.Rewind()); }

private:
    Error Marked(Error error) const {
        return error.Failed() ? WriteFailure(error).WithField(TextField("source", name_)) : error;
    }

    Source& inner_;
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

}  // namespace

struct ZipWriter::Impl {
    Impl(std::filesystem::path target, std::filesystem::path temporary, const Format::Limits& zip64Limits)
        : target(std::move(target)), temporary(std::move(temporary)), limits(zip64Limits), input(kBufferSize) {}

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // The file is closed before it is removed, as Windows removes no open file.
    ~Impl() {
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

    // Runs the adding of entry `name`: no exception leaves it, and a failure names the entry.
    template <typename Body>
    Error Guarded(std::string_view name, Body&& body) {
        Error error = Common::CatchErrors([&] { return closed || aborted ? ClosedFailure() : body(); });
        return error.Failed() ? error.WithField(TextField("entry", std::string(name))) : error;
    }

    Format::Entry NewEntry(std::string name, bool folder, std::time_t modified) const {
        std::tm local{};
        Format::Entry entry;
        entry.name = std::move(name);
        entry.folder = folder;
        entry.modified = Format::ToDosDateTime(Platform::ToLocalTime(modified, local) ? local : std::tm{});
        entry.unixModified = Format::ToUnixTime32(modified);
        entry.localHeaderOffset = out.Position();
        return entry;
    }

    bool NeedsZip64Sizes(const Format::Entry& entry) const {
        return entry.uncompressedSize >= limits.field || entry.compressedSize >= limits.field;
    }

    // Writes the entry's local header, with the sizes still unknown, and its data.
    Error WritePass(Format::Entry& entry, Source& source, bool zip64Sizes) {
        entry.crc = static_cast<std::uint32_t>(crc32(0, nullptr, 0));
        entry.uncompressedSize = 0;
        if (Error error = out.Write(Format::LocalHeader(entry, zip64Sizes)); error.Failed()) return error;
        std::uint64_t dataStart = out.Position();
        bool deflating = entry.method == Format::Method::Deflate;
        if (deflating) deflater.Reset();
        for (;;) {
            if (aborted) return ClosedFailure();
            std::size_t got = 0;
            if (Error error = source.Read(input, got); error.Failed()) return error;
            std::span<const char> chunk(input.data(), got);
            entry.crc = static_cast<std::uint32_t>(
                crc32(entry.crc, reinterpret_cast<const Bytef*>(chunk.data()), static_cast<uInt>(got)));
            entry.uncompressedSize += got;
            Error error = deflating ? deflater.Deflate(chunk, got == 0, out)
                                    : out.Write(std::string_view(chunk.data(), chunk.size()));
            if (error.Failed()) return error;
            if (got == 0) break;
        }
        entry.compressedSize = out.Position() - dataStart;
        return {};
    }

    // A pass is redone when the entry turns out to need ZIP64 sizes its local header has no room for, or
    // when deflate did not make it smaller; each retry changes one choice for good, so there are at most three
    // passes.
    Error WriteFileEntry(Format::Entry& entry, Source& source) {
        bool zip64Sizes = source.SizeHint() >= limits.field;
        entry.method = Format::Method::Deflate;
        for (;;) {
            if (Error error = WritePass(entry, source, zip64Sizes); error.Failed()) return error;
            bool grow = !zip64Sizes && NeedsZip64Sizes(entry);
            bool store = entry.method == Format::Method::Deflate && entry.compressedSize >= entry.uncompressedSize;
            if (!grow && !store) break;
            zip64Sizes = zip64Sizes || grow;
            if (store) entry.method = Format::Method::Store;
            if (Error error = out.RewindTo(entry.localHeaderOffset); error.Failed()) return error;
            if (Error error = source.Rewind(); error.Failed()) return error;
        }
        return out.PatchAt(entry.localHeaderOffset, Format::LocalHeader(entry, zip64Sizes));
    }

    Error AddFile(std::string_view name, Source& source, std::time_t modified) {
        std::optional<std::string> stored = Format::NormalizeName(name, false);
        if (!stored) return WriteFailure(Error::AddErrno(EINVAL));
        Format::Entry entry = NewEntry(std::move(*stored), false, modified);
        Error error = Common::CatchErrors([&] { return WriteFileEntry(entry, source); });
        if (error.Failed()) return Abandon(entry, error);
        AddToDirectory(entry);
        return {};
    }

    Error AddFolder(std::string_view name, std::time_t modified) {
        std::optional<std::string> stored = Format::NormalizeName(name, true);
        if (!stored) return WriteFailure(Error::AddErrno(EINVAL));
        Format::Entry entry = NewEntry(std::move(*stored), true, modified);
        entry.crc = static_cast<std::uint32_t>(crc32(0, nullptr, 0));
        Error error = Common::CatchErrors([&] { return out.Write(Format::LocalHeader(entry, false)); });
        if (error.Failed()) return Abandon(entry, error);
        AddToDirectory(entry);
        return {};
    }

    void AddToDirectory(const Format::Entry& entry) {
        directory += Format::CentralHeader(entry, limits);
        ++entryCount;
    }

    // Drops the failed entry so the archive stays readable; when even that fails, the archive is given up.
    Error Abandon(const Format::Entry& entry, const Error& error) {
        if (out.RewindTo(entry.localHeaderOffset).Failed()) closed = true;
        return error;
    }

    Error Commit() {
        if (closed || aborted) return ClosedFailure();
        closed = true;
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

    std::filesystem::path target;
    std::filesystem::path temporary;
    bool ownsTemporary = false;
    bool closed = false;
    std::atomic<bool> aborted{false};
    OutputFile out;
    Format::Limits limits;
    Deflater deflater;
    std::vector<char> input;
    std::string directory;
    std::uint64_t entryCount = 0;
};

ZipWriter::ZipWriter(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ZipWriter::~ZipWriter() = default;

Common::Error ZipWriter::Create(const std::filesystem::path& target, std::unique_ptr<ZipWriter>& writer) {
    return TestAccess::Create(target, Format::Limits{}, writer);
}

Common::Error TestAccess::Create(const std::filesystem::path& target, const Format::Limits& limits,
                                 std::unique_ptr<ZipWriter>& writer) {
    return Common::CatchErrors([&]() -> Error {
        // Beside the target, so that the rename cannot cross file systems; short, so that a target name at the
        // system's length limit still works; hidden, and named after this process, so that what a killed run
        // leaves is recognised and removed by a later one.
        std::filesystem::path temporary =
            target.parent_path() /
            Common::PathFromUtf8(Common::NewRunFileName(Common::kPartialArchivePrefix, Common::kPartialArchiveSuffix));
        auto impl = std::make_unique<ZipWriter::Impl>(target, temporary, limits);
        if (Error error = impl->Open(); error.Failed()) return error;
        writer.reset(new ZipWriter(std::move(impl)));
        return {};
    });
}

void ZipWriter::Abort() { impl_->aborted = true; }

const std::filesystem::path& ZipWriter::TemporaryPath() const { return impl_->temporary; }

Common::Error ZipWriter::AddFile(std::string_view name, std::string_view data, std::time_t modified) {
    return impl_->Guarded(name, [&] {
        MemorySource source(data);
        return impl_->AddFile(name, source, modified);
    });
}

Common::Error ZipWriter::AddFileFromDisk(std::string_view name, const std::filesystem::path& source,
                                         std::time_t modified) {
    return impl_->Guarded(name, [&] {
        std::unique_ptr<DiskSource> file;
        if (Error error = DiskSource::Open(source, file); error.Failed()) return error;
        return impl_->AddFile(name, *file, modified);
    });
}

Common::Error ZipWriter::AddFromSource(std::string_view name, std::unique_ptr<EntrySource> source,
                                       std::time_t modified, const Transform& transform) {
    return impl_->Guarded(name, [&]() -> Error {
        MarkedSource marked(*source, name);
        if (!transform) return impl_->AddFile(name, marked, modified);
        std::string bytes;
        std::vector<char> chunk(kBufferSize);
        for (std::size_t got = 1; got != 0;) {
            if (Error error = marked.Read(chunk, got); error.Failed()) return error;
            bytes.append(chunk.data(), got);
        }
        std::string stored;
        if (Error error = transform(bytes, stored); error.Failed()) {
            return WriteFailure(error).WithField(TextField("source", std::string(name)));
        }
        MemorySource memory(stored);
        return impl_->AddFile(name, memory, modified);
    });
}

Common::Error ZipWriter::AddFolder(std::string_view name, std::time_t modified) {
    return impl_->Guarded(name, [&] { return impl_->AddFolder(name, modified); });
}

Common::Error ZipWriter::Commit() {
    return Common::CatchErrors([&] { return impl_->Commit(); });
}

bool IsSourceFailure(const Common::Error& error) {
    for (const Common::ErrorField& field : error.Fields()) {
        if (field.name == "source") return true;
    }
    return false;
}

}  // namespace Zip
