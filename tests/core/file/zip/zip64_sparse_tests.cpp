// An entry over 4 GiB: a sparse file of zeros (made by truncate) with text at its end, packed in blocks on
// the workers and read back by Info-ZIP and Python, which check its size and CRC.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "core/file/zip/zip_writer.h"
#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;

const char kPythonSize[] = R"(
import sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as archive, archive.open('sparse.img') as entry:
    size, tail = 0, b''
    while chunk := entry.read(1 << 24):
        size, tail = size + len(chunk), (tail + chunk)[-16:]
    print(size, tail.decode())
)";

TEST(Zip64SparseTest, EntryOver4GiBReadsBack) {
    for (const char* tool : {"unzip", "python3", "truncate"}) {
        if (std::system(("command -v " + std::string(tool) + " >/dev/null 2>&1").c_str()) != 0) {
            GTEST_SKIP() << "'" << tool << "' is not installed";
        }
    }
    TestSupport::TempFolder temp;
    const fs::path source = temp.path() / "sparse.img", archive = temp.path() / "report.zip";
    const std::uint64_t zeros = (std::uint64_t{4} << 30) + (16u << 20);
    ASSERT_EQ(std::system(("truncate -s " + std::to_string(zeros) + " '" + source.string() + "'").c_str()), 0);
    std::ofstream(source, std::ios::binary | std::ios::app) << "end of the image";

    std::unique_ptr<Zip::ZipWriter> writer;
    ASSERT_FALSE(Zip::ZipWriter::Create(archive, writer).Failed());
    ASSERT_FALSE(writer->AddFileFromDisk("sparse.img", source, 1623766271).Failed());
    ASSERT_FALSE(writer->AddFile("after.txt", "after", 1623766271).Failed());
    ASSERT_FALSE(writer->Commit().Failed());
    fs::remove(source);
    EXPECT_LT(fs::file_size(archive), 16u << 20);

    const fs::path output = temp.path() / "output.txt", script = temp.path() / "size.py";
    ASSERT_EQ(std::system(("unzip -tq '" + archive.string() + "' >'" + output.string() + "' 2>&1").c_str()), 0)
        << TestSupport::ReadFile(output);
    TestSupport::WriteFile(script, kPythonSize);
    ASSERT_EQ(std::system(("python3 '" + script.string() + "' '" + archive.string() + "' >'" + output.string() +
                           "' 2>&1").c_str()),
              0)
        << TestSupport::ReadFile(output);
    EXPECT_EQ(TestSupport::ReadFile(output), std::to_string(zeros + 16) + " end of the image\n");
}

}  // namespace
