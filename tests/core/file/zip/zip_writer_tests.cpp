// The zip writer end to end: archives checked by independent readers, ZIP64, and the temporary-file rules.
#include "core/file/zip/zip_writer.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <algorithm>
#include <cctype>
#include <functional>
#include <latch>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "core/file/zip/zip_writer_testing.h"
#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;
using TestSupport::ReadFile;
using TestSupport::WriteFile;
using Zip::ZipWriter;

constexpr std::time_t kJune2021 = 1623766271;  // 2021-06-15 14:11:11 UTC: an odd second

// One entry as Python's zipfile sees it after reading (and so CRC-checking) its data.
struct ReadEntry {
    int flags = 0, method = -1;
    std::string dateTime, unixTime;
    std::uint64_t size = 0;
    std::uint32_t crc = 0, attributes = 0;
    bool folder = false;
};

const char kPythonReader[] = R"(
import struct, sys, zipfile, zlib
with zipfile.ZipFile(sys.argv[1]) as archive:
    for info in archive.infolist():
        data, unix, extra = archive.read(info), '-', info.extra
        while len(extra) >= 4:
            tag, size = struct.unpack_from('<HH', extra)
            if tag == 0x5455 and extra[4] & 1:
                unix = str(struct.unpack_from('<i', extra, 5)[0])
            extra = extra[4 + size:]
        print(info.filename.encode().hex(), info.flag_bits, info.compress_type, '%04d-%02d-%02d-%02d-%02d-%02d' %
              info.date_time, unix, len(data), zlib.crc32(data), info.external_attr, int(info.is_dir()))
)";

std::string Quote(const fs::path& path) { return "'" + path.string() + "'"; }

std::uint32_t Crc(std::string_view data) {
    return static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(data.data()), data.size()));
}

std::string RandomBytes(std::size_t size, unsigned start) {
    std::mt19937 engine(start);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(engine());
    return bytes;
}

std::string TextLines(std::size_t lines) {
    std::string text;
    for (std::size_t i = 0; i < lines; ++i) text += "2024-05-01 10:00:" + std::to_string(i % 60) + " service started\n";
    return text;
}

// The first local header naming `name`: its 30 fixed bytes, the name and the start of the extra field.
std::string LocalHeaderOf(const std::string& archive, const std::string& name) {
    std::size_t at = archive.find(name);
    return at == std::string::npos || at < 30 ? std::string() : archive.substr(at - 30, 30 + name.size() + 4);
}

std::string DosDateTimeText(std::time_t time) {
    std::tm local = *std::localtime(&time);
    local.tm_sec -= local.tm_sec % 2;
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d-%H-%M-%S", &local);
    return text;
}

class ZipWriterTest : public ::testing::Test {
protected:
    std::vector<fs::path> FolderContents() const { return {fs::directory_iterator(folder_), {}}; }

    // Creates `target`, lets `body` add entries, and commits.
    static void WriteArchive(const fs::path& target, const std::function<void(ZipWriter&)>& body,
                             const Zip::Format::Limits& limits = {}) {
        std::unique_ptr<ZipWriter> writer;
        ASSERT_FALSE(Zip::TestAccess::Create(target, limits, writer).Failed());
        body(*writer);
        ASSERT_FALSE(writer->Commit().Failed());
    }

    TestSupport::TempFolder temp_;
    const fs::path& folder_ = temp_.path();
    const fs::path target_ = folder_ / "report.zip";
};

// Archive contents as unzip, 7z and Python see them; where one is missing (Windows) the tests are skipped.
class ZipReaderTest : public ZipWriterTest {
protected:
    void SetUp() override {
        for (const char* tool : {"unzip", "7z", "python3"}) {
            if (std::system(("command -v " + std::string(tool) + " >/dev/null 2>&1").c_str()) != 0) {
                GTEST_SKIP() << "archive reader '" << tool << "' is not installed";
            }
        }
    }

    std::string Run(const std::string& command) {
        fs::path output = folder_ / "output.txt";
        int status = std::system((command + " >" + Quote(output) + " 2>&1").c_str());
        std::string text = ReadFile(output);
        EXPECT_EQ(status, 0) << command << ":\n" << text;
        return text;
    }

    // Entries by name, as Python reads them, after unzip and 7z have tested the archive.
    std::map<std::string, ReadEntry> ReadBack() {
        std::string archive = ReadFile(target_);
        EXPECT_EQ(archive.rfind("PK\x05\x06"), archive.size() - 22) << "the archive ends with its end record";
        Run("unzip -tq " + Quote(target_));
        std::string sevenZip = Run("7z t " + Quote(target_));
        EXPECT_NE(sevenZip.find("Everything is Ok"), std::string::npos) << sevenZip;
        EXPECT_EQ(sevenZip.find("WARNING"), std::string::npos) << sevenZip;

        WriteFile(folder_ / "reader.py", kPythonReader);
        std::istringstream lines(Run("python3 " + Quote(folder_ / "reader.py") + " " + Quote(target_)));
        std::map<std::string, ReadEntry> entries;
        for (std::string hexName; lines >> hexName;) {
            std::string name;
            for (std::size_t i = 0; i + 1 < hexName.size(); i += 2) {
                name += static_cast<char>(std::stoi(hexName.substr(i, 2), nullptr, 16));
            }
            ReadEntry& e = entries[name];
            lines >> e.flags >> e.method >> e.dateTime >> e.unixTime >> e.size >> e.crc >> e.attributes >> e.folder;
        }
        return entries;
    }

    static void ExpectFile(const std::map<std::string, ReadEntry>& entries, const std::string& name,
                           std::string_view data, int method) {
        auto found = entries.find(name);
        ASSERT_NE(found, entries.end()) << name;
        EXPECT_EQ(found->second.size, data.size()) << name;
        EXPECT_EQ(found->second.crc, Crc(data)) << name;
        EXPECT_EQ(found->second.method, method) << name;
        EXPECT_EQ(found->second.flags & 0x0800, 0x0800) << name << ": UTF-8 name flag";
    }
};

TEST_F(ZipReaderTest, FilesFoldersNamesAndTimesReadBackExactly) {
    std::string text = TextLines(2000), noise = RandomBytes(100000, 1);
    const std::time_t before1980 = 86400 * 365;
    WriteArchive(target_, [&](ZipWriter& writer) {
        EXPECT_FALSE(writer.AddFolder("logs", kJune2021).Failed());
        EXPECT_FALSE(writer.AddFolder("\\old\\", before1980).Failed());
        EXPECT_FALSE(writer.AddFile("logs/service.log", text, kJune2021).Failed());
        EXPECT_FALSE(writer.AddFile("logs\\empty.log", "", kJune2021).Failed());
        EXPECT_FALSE(writer.AddFile("/noise.bin", noise, kJune2021).Failed());
        EXPECT_FALSE(writer.AddFile("Grüße/日本.txt", "grüße", kJune2021).Failed());
        for (const char* bad : {"", "../escape.txt", "logs/../../x", "folder/"}) {
            EXPECT_EQ(writer.AddFile(bad, "x", kJune2021).Code(), 0x40007u) << bad;
        }
    });
    auto entries = ReadBack();
    EXPECT_EQ(entries.size(), 6u) << "refused names leave nothing behind";
    ExpectFile(entries, "logs/service.log", text, 8);
    ExpectFile(entries, "logs/empty.log", "", 0);
    ExpectFile(entries, "noise.bin", noise, 0);
    ExpectFile(entries, "Grüße/日本.txt", "grüße", 0);
    for (const char* name : {"logs/", "old/"}) {
        EXPECT_TRUE(entries[name].folder) << name;
        EXPECT_EQ(entries[name].attributes & 0x10, 0x10u) << name << ": directory attribute";
    }
    EXPECT_EQ(entries["logs/service.log"].dateTime, DosDateTimeText(kJune2021));
    EXPECT_EQ(entries["logs/service.log"].unixTime, std::to_string(kJune2021));
    EXPECT_EQ(entries["old/"].dateTime, "1980-01-01-00-00-00");
    EXPECT_EQ(entries["old/"].unixTime, std::to_string(before1980));
}

TEST_F(ZipReaderTest, FilesFromDiskAreStreamedAndFailedOnesLeaveNoTrace) {
    std::string mixed = TextLines(60000) + RandomBytes(1 << 20, 2) + TextLines(30000);
    std::string noise = RandomBytes(3 << 20, 3);
    fs::path mixedPath = folder_ / u8"Protokoll-ü.log", noisePath = folder_ / "noise.dmp", pipe = folder_ / "pipe";
    WriteFile(mixedPath, mixed);
    WriteFile(noisePath, noise);
    Run("mkfifo " + Quote(pipe));
    // Incompressible bytes from a pipe, in one block: stored from memory, as a pipe cannot be read twice.
    const std::string piped = RandomBytes(1 << 20, 5);
    std::thread feeder([&] { WriteFile(pipe, piped); });
    WriteArchive(target_, [&](ZipWriter& writer) {
        EXPECT_FALSE(writer.AddFileFromDisk("mixed.log", mixedPath, kJune2021).Failed());
        Common::Error missing = writer.AddFileFromDisk("missing.log", folder_ / "missing.log", kJune2021);
        EXPECT_EQ(missing.Code(), 0x40007u);
        EXPECT_EQ(missing.Cause().Code(), static_cast<std::uint32_t>(ENOENT));
        EXPECT_TRUE(Zip::IsSourceFailure(missing)) << "a missing source must not read as a broken archive";
        EXPECT_EQ(writer.AddFileFromDisk("folder.log", folder_, kJune2021).Code(), 0x40007u);
        EXPECT_FALSE(writer.AddFileFromDisk("noise.dmp", noisePath, kJune2021).Failed());
        EXPECT_FALSE(writer.AddFileFromDisk("pipe.bin", pipe, kJune2021).Failed());
    });
    feeder.join();
    auto entries = ReadBack();
    EXPECT_EQ(entries.size(), 3u);
    ExpectFile(entries, "mixed.log", mixed, 8);
    // Larger than a block: the blocks that deflate cannot shrink are stored inside the deflate stream.
    ExpectFile(entries, "noise.dmp", noise, 8);
    ExpectFile(entries, "pipe.bin", piped, 0);
    std::string archive = ReadFile(target_);
    EXPECT_LT(archive.size(), mixed.size() / 2 + noise.size() + piped.size());
    for (const char* name : {"missing.log", "folder.log"}) {
        EXPECT_EQ(archive.find(name), std::string::npos) << name;
    }
}

TEST_F(ZipReaderTest, Zip64RecordsPassEveryReader) {
    std::string text = TextLines(100), noise = RandomBytes(1000, 4);
    WriteArchive(
        target_,
        [&](ZipWriter& writer) {
            EXPECT_FALSE(writer.AddFile("text.log", text, kJune2021).Failed());
            EXPECT_FALSE(writer.AddFile("noise.bin", noise, kJune2021).Failed());
            EXPECT_FALSE(writer.AddFile("empty.log", "", kJune2021).Failed());
            EXPECT_FALSE(writer.AddFolder("folder", kJune2021).Failed());
            // Size 0 on disk, more than 64 bytes when read: the entry outgrows its local header.
            EXPECT_FALSE(writer.AddFileFromDisk("status", "/proc/self/status", kJune2021).Failed());
        },
        {64, 3});
    std::string archive = ReadFile(target_);
    EXPECT_NE(archive.find("PK\x06\x06"), std::string::npos) << "ZIP64 end record";
    EXPECT_NE(archive.find("PK\x06\x07"), std::string::npos) << "ZIP64 end locator";
    auto entries = ReadBack();
    ExpectFile(entries, "text.log", text, 8);
    ExpectFile(entries, "noise.bin", noise, 0);
    ExpectFile(entries, "empty.log", "", 0);
    EXPECT_TRUE(entries["folder/"].folder);
    EXPECT_GT(entries["status"].size, 64u);
    for (const std::string name : {"text.log", "status"}) {
        std::string header = LocalHeaderOf(archive, name);
        ASSERT_EQ(header.substr(0, 4), "PK\x03\x04") << name;
        EXPECT_EQ(header.substr(18, 8), std::string(8, '\xFF')) << name << ": local sizes in the ZIP64 field";
        EXPECT_EQ(header.substr(30 + name.size()), std::string("\x01\x00\x10\x00", 4)) << name;
    }
}

TEST_F(ZipReaderTest, MoreThan65535EntriesPassEveryReader) {
    WriteArchive(target_, [](ZipWriter& writer) {
        for (int i = 0; i < 70000; ++i) {
            ASSERT_FALSE(writer.AddFile("e/" + std::to_string(i), std::to_string(i), kJune2021).Failed());
        }
    });
    auto entries = ReadBack();
    EXPECT_EQ(entries.size(), 70000u);
    ExpectFile(entries, "e/69999", "69999", 0);
}

TEST_F(ZipWriterTest, TargetInAMissingFolderCannotBeCreated) {
    std::unique_ptr<ZipWriter> writer;
    Common::Error error = ZipWriter::Create(folder_ / "missing" / "report.zip", writer);
    EXPECT_EQ(error.Code(), 0x4000au);
    EXPECT_EQ(error.Message(), L"Error occurred while creating the file.");
    EXPECT_FALSE(writer);
}

TEST_F(ZipWriterTest, WriterDestroyedWithoutCommitLeavesTheTargetAlone) {
    WriteFile(target_, "previous report");
    {
        std::unique_ptr<ZipWriter> writer;
        ASSERT_FALSE(ZipWriter::Create(target_, writer).Failed());
        EXPECT_FALSE(writer->AddFile("a.txt", TextLines(100000), kJune2021).Failed());
        EXPECT_EQ(FolderContents().size(), 2u) << "the temporary file sits beside the target";
    }
    EXPECT_EQ(ReadFile(target_), "previous report");
    EXPECT_EQ(FolderContents(), std::vector<fs::path>{target_});
}

// The readers above are not there on Windows, where the file calls differ: the tests' own reader checks there.
TEST_F(ZipWriterTest, CommitReplacesTheTargetAndClosesTheWriter) {
    std::string text = TextLines(5000), noise = RandomBytes(1000, 6);
    fs::path source = folder_ / u8"Quelle-日本.log", target = folder_ / u8"Bericht-Grüße.zip";
    WriteFile(source, text);
    WriteFile(target, "previous report");
    std::unique_ptr<ZipWriter> writer;
    ASSERT_FALSE(Zip::TestAccess::Create(target, {64, 3}, writer).Failed());
    EXPECT_FALSE(writer->AddFolder("Grüße", kJune2021).Failed());
    EXPECT_FALSE(writer->AddFile("Grüße\\日本.bin", noise, kJune2021).Failed());
    EXPECT_FALSE(writer->AddFileFromDisk("logs/quelle.log", source, kJune2021).Failed());
    ASSERT_FALSE(writer->Commit().Failed());
    EXPECT_EQ(writer->AddFile("late.txt", "late", kJune2021).Code(), 0x40007u);
    EXPECT_EQ(writer->Commit().Code(), 0x40007u);
    writer.reset();
    EXPECT_EQ(FolderContents().size(), 2u) << "no temporary file is left";

    auto entries = TestSupport::ReadZip(target);
    ASSERT_TRUE(entries);
    EXPECT_EQ(entries->size(), 3u);
    EXPECT_TRUE((*entries)["Grüße/"].folder);
    EXPECT_EQ((*entries)["Grüße/日本.bin"].data, noise);
    EXPECT_EQ((*entries)["Grüße/日本.bin"].method, 0);
    EXPECT_EQ((*entries)["logs/quelle.log"].data, text);
    EXPECT_EQ((*entries)["logs/quelle.log"].method, 8);
    for (const auto& [name, entry] : *entries) EXPECT_EQ(entry.flags & 0x0800, 0x0800) << name;
}

}  // namespace

namespace {

// Small blocks and a small budget, so that entries of some hundred kilobytes take the paths of large ones.
constexpr Zip::Tuning kSmallBlocks{64 * 1024, 256 * 1024, 2};

// Bytes on demand, for the failures of a file while it is packed. A read from `gateAt` on waits for
// `gate`, so that a test decides what the workers have done before the entry goes on.
class FakeSource final : public Zip::EntrySource {
public:
    FakeSource(std::string data, std::uint64_t hint, std::size_t failAt = std::string::npos,
               std::latch* gate = nullptr, std::size_t gateAt = 0)
        : data_(std::move(data)), hint_(hint), failAt_(failAt), gate_(gate), gateAt_(gateAt) {}
    std::uint64_t SizeHint() const override { return hint_; }
    Common::Error Read(std::span<char> buffer, std::size_t& got) override {
        if (gate_ && position_ >= gateAt_) gate_->wait();
        if (position_ >= failAt_) return Common::Error::AddErrno(EIO);
        got = data_.copy(buffer.data(), std::min(buffer.size(), failAt_ - position_), position_);
        position_ += got;
        return {};
    }
    Common::Error Rewind() override {
        position_ = 0;
        return {};
    }

private:
    std::string data_;
    std::uint64_t hint_;
    std::size_t failAt_;
    std::latch* gate_;
    std::size_t gateAt_;
    std::size_t position_ = 0;
};

// Upper-cases the text piece by piece, or throws where a worker would run out of memory.
class UpperCase final : public Zip::TransformStream {
public:
    explicit UpperCase(bool throws, std::latch* failed = nullptr) : throws_(throws), failed_(failed) {}
    Common::Error Push(std::string_view bytes, bool, std::string& stored) override {
        if (throws_) {
            if (failed_) failed_->count_down();
            throw std::bad_alloc();
        }
        for (char c : bytes) stored += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return {};
    }

private:
    bool throws_;
    std::latch* failed_;
};

std::string Upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

Zip::Transform Uppercasing(bool throws = false, std::latch* failed = nullptr) {
    return Zip::Transform::Stream([=] { return std::make_unique<UpperCase>(throws, failed); });
}

}  // namespace

// Entries of many blocks: each block deflated on its own and joined into one stream; incompressible blocks
// stored inside it; transforms fed in pieces or given the whole text.
TEST_F(ZipReaderTest, EntriesOfManyBlocksReadBackExactly) {
    const std::string text = TextLines(20000), noise = RandomBytes(300000, 7);
    const std::string mixed = TextLines(3000) + RandomBytes(100000, 8) + TextLines(3000);
    std::unique_ptr<ZipWriter> writer;
    ASSERT_FALSE(Zip::TestAccess::Create(target_, {}, kSmallBlocks, writer).Failed());
    auto add = [&](const char* name, const std::string& data, const Zip::Transform& transform = {}) {
        EXPECT_FALSE(writer->AddFromSource(name, std::make_unique<FakeSource>(data, data.size()), kJune2021, transform)
                         .Failed())
            << name;
    };
    add("text.log", text);
    add("noise.bin", noise);
    add("mixed.log", mixed);
    add("streamed.log", text, Uppercasing());
    add("whole.log", mixed, [](const std::string& in, std::string& out) {
        out = Upper(in);
        return Common::Error();
    });
    ASSERT_FALSE(writer->Commit().Failed());
    auto entries = ReadBack();
    EXPECT_EQ(entries.size(), 5u);
    ExpectFile(entries, "text.log", text, 8);
    ExpectFile(entries, "noise.bin", noise, 8);
    ExpectFile(entries, "mixed.log", mixed, 8);
    ExpectFile(entries, "streamed.log", Upper(text), 8);
    ExpectFile(entries, "whole.log", Upper(mixed), 8);
    EXPECT_LT(ReadFile(target_).size(), noise.size() + 2 * 100000 + text.size() / 4) << "text blocks are compressed";
}

// A source that fails, or gives more or less than it promised, and a transform that throws on a worker:
// the failing entry is dropped whole, the ones around it stay, and the archive reads back.
TEST_F(ZipReaderTest, FailingEntriesAreDroppedWhole) {
    const std::string text = TextLines(8000);
    std::unique_ptr<ZipWriter> writer;
    ASSERT_FALSE(Zip::TestAccess::Create(target_, {}, kSmallBlocks, writer).Failed());
    // The transform fails on the entry's first block while the reading of its third waits (the first is
    // handed to the workers once the second shows that it is not the last).
    std::latch failed(1);
    ASSERT_FALSE(writer->AddFromSource("before.log", std::make_unique<FakeSource>(text, text.size()), kJune2021)
                     .Failed());
    Common::Error readError = writer->AddFromSource(
        "unreadable.log", std::make_unique<FakeSource>(text, text.size(), 200000), kJune2021);
    EXPECT_TRUE(Zip::IsSourceFailure(readError)) << "a read error in the middle of a block";
    EXPECT_FALSE(writer->AddFromSource("thrown.log", std::make_unique<FakeSource>(text, text.size(), std::string::npos, &failed,
                                                                                2 * kSmallBlocks.blockSize),
                                       kJune2021, Uppercasing(true, &failed))
                     .Failed())
        << "the worker's failure is the writer's to log";
    EXPECT_FALSE(writer->AddFromSource("grown.log", std::make_unique<FakeSource>(text, 10), kJune2021).Failed());
    EXPECT_FALSE(writer->AddFromSource("shrunk.log", std::make_unique<FakeSource>(text, 10 * text.size()), kJune2021)
                     .Failed());
    ASSERT_FALSE(writer->Commit().Failed());
    auto entries = ReadBack();
    EXPECT_EQ(entries.size(), 3u);
    for (const char* name : {"before.log", "grown.log", "shrunk.log"}) ExpectFile(entries, name, text, 8);
    const std::string archive = ReadFile(target_);
    for (const char* name : {"unreadable.log", "thrown.log"}) {
        EXPECT_EQ(archive.find(name), std::string::npos) << name << " leaves no trace";
    }
}

// Abort from another thread while an entry waits for memory: the call returns, nothing is left behind.
TEST_F(ZipWriterTest, AbortStopsTheWriterAndKeepsTheTarget) {
    WriteFile(target_, "previous report");
    std::unique_ptr<ZipWriter> writer;
    ASSERT_FALSE(Zip::TestAccess::Create(target_, {}, kSmallBlocks, writer).Failed());
    std::latch reading(1);
    std::thread stopper([&] {
        reading.wait();
        writer->Abort();
    });
    class Endless final : public Zip::EntrySource {
    public:
        explicit Endless(std::latch& reading) : reading_(reading) {}
        std::uint64_t SizeHint() const override { return 0; }
        Common::Error Read(std::span<char> buffer, std::size_t& got) override {
            if (++reads_ == 2) reading_.count_down();
            std::fill(buffer.begin(), buffer.end(), 'x');
            got = buffer.size();
            return {};
        }
        Common::Error Rewind() override { return {}; }

    private:
        std::latch& reading_;
        int reads_ = 0;
    };
    EXPECT_EQ(writer->AddFromSource("endless.log", std::make_unique<Endless>(reading), kJune2021).Code(), 0x40007u);
    stopper.join();
    EXPECT_EQ(writer->Commit().Code(), 0x40007u);
    writer.reset();
    EXPECT_EQ(ReadFile(target_), "previous report");
    EXPECT_EQ(FolderContents(), std::vector<fs::path>{target_});
}
