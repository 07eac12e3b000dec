// The scheduler report: bytes passed through, the buffer always freed, the library loaded from a folder;
// and the text item around it and the version report (whose exact bytes entry_point_e2e.sh checks).
#include "products/imager/system_report/scheduler_report.h"
#include "products/imager/system_report/text_report.h"

#include <gtest/gtest.h>

#include <sstream>

#include "core/common/folders.h"
#include "core/common/strings.h"
#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;

class RecordingLibrary : public SystemReport::SchedulerLibrary {
public:
    explicit RecordingLibrary(std::string report) : report_(std::move(report)) {}
    void CreateLocalReport(SystemReport::ScheduleReportBuffer* buffer) override {
        EXPECT_EQ(buffer->data, nullptr);
        EXPECT_EQ(buffer->reserved, 0u);
        EXPECT_EQ(buffer->length, 0u);
        if (!report_.empty()) buffer->data = report_.data();
        buffer->length = static_cast<std::uint32_t>(report_.size());
    }
    void FreeMemory(void* data) override {
        ++frees;
        freed = data;
    }
    int frees = 0;
    void* freed = reinterpret_cast<void*>(1);

private:
    std::string report_;
};

TEST(SchedulerReportTest, BytesPassUnchangedAndTheBufferIsFreedInEveryCase) {
    std::string report("A\r\n\0\xFF", 5);
    RecordingLibrary library(report);
    std::ostringstream out;
    EXPECT_FALSE(SystemReport::WriteSchedulerReport(library, &out).Failed());
    EXPECT_EQ(out.str(), report);
    EXPECT_EQ(library.frees, 1);

    RecordingLibrary noStream("x");
    SystemReport::WriteSchedulerReport(noStream, nullptr);
    EXPECT_EQ(noStream.frees, 1);

    RecordingLibrary empty("");
    std::ostringstream nothing;
    SystemReport::WriteSchedulerReport(empty, &nothing);
    EXPECT_EQ(empty.frees, 1);
    EXPECT_EQ(empty.freed, nullptr) << "free is called with the null pointer too";
    EXPECT_TRUE(nothing.str().empty());
}

fs::path FakeLibraryFolder() {
    // The test library is built beside this test; it is copied under the product library's name.
    const char* binary = std::getenv("SR_TEST_BINARY_DIR");
    return binary ? Common::PathFromUtf8(binary) : Common::ExecutablePath().parent_path();
}

TEST(SchedulerReportTest, LibraryBesideTheExecutableIsLoadedAndItsReportArchived) {
    TestSupport::TempFolder temp;
    fs::path libraryFolder = temp.path() / "bin";
    fs::create_directories(libraryFolder);
    fs::path built = FakeLibraryFolder() / SR_FAKE_SCHEDULER_LIBRARY;
    ASSERT_TRUE(fs::exists(built)) << built;
    fs::copy_file(built, libraryFolder / SystemReport::SchedulerLibraryFileName());

    SystemReport::ReportSchedMgr item(libraryFolder);
    SystemReport::FileEntries entries;
    ASSERT_FALSE(item.Create(temp.path(), entries).Failed());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].archiveName, L"schedule.txt");
    EXPECT_EQ(TestSupport::ReadFile(entries[0].source), std::string("Task 1\r\n\0binary\xFF\n", 17));
}

TEST(SchedulerReportTest, MissingLibraryLeavesTheItemOutWithoutFailing) {
    TestSupport::TempFolder temp;
    SystemReport::ReportSchedMgr item(temp.path() / "nowhere");
    SystemReport::FileEntries entries;
    EXPECT_FALSE(item.Create(temp.path(), entries).Failed());
    EXPECT_TRUE(entries.empty());
}

TEST(TextReportTest, AnItemThatCannotCreateItsFileAddsNoEntry) {
    TestSupport::TempFolder temp;
    int calls = 0;
    bool sawStream = true;
    SystemReport::TextReport item(L"t", L"x.txt", [&](std::ostream* out) {
        ++calls;
        sawStream = out != nullptr;
        return Common::Error();
    });
    SystemReport::FileEntries entries;
    Common::Error error = item.Create(temp.path() / "missing-folder", entries);
    EXPECT_EQ(error.Code(), 0x4000au);
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(calls, 1) << "the producer still runs without a stream, to release what it holds";
    EXPECT_FALSE(sawStream);
}

}  // namespace
