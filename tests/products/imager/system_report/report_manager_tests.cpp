// The report manager: item order, failing items, cancel, the save's failures, folder entries,
// settings files and copy filters, read back from the archive.
#include "products/imager/system_report/report_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <thread>

#include "products/imager/system_report/filtered_copy.h"
#include "products/imager/system_report/folder_walk.h"
#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;
using SystemReport::FileEntries;
using SystemReport::FileEntry;
using TestSupport::ReadZip;
using TestSupport::TempFolder;
using TestSupport::WriteFile;

// An item that writes one file and may fail after writing it.
class FileItem : public SystemReport::Report {
public:
    FileItem(std::string name, std::string content, std::vector<std::string>* ran, std::uint32_t failWith = 0)
        : name_(std::move(name)), content_(std::move(content)), ran_(ran), failWith_(failWith) {}
    Common::Error Create(const fs::path& folder, FileEntries& entries) override {
        if (ran_) ran_->push_back(name_);
        WriteFile(folder / name_, content_);
        entries.push_back({folder / name_, std::wstring(name_.begin(), name_.end()), L"title", nullptr});
        return failWith_ ? Common::Error::Make(failWith_, L"item failed") : Common::Error();
    }

private:
    std::string name_, content_;
    std::vector<std::string>* ran_;
    std::uint32_t failWith_;
};

// Upper-cases the text, or fails as a filter may: with an error, or with an exception as one that runs out
// of memory on a huge file does.
class TestFilter : public SystemReport::CopyFileFilter {
public:
    enum Mode { kUpperCase, kError, kThrow };
    explicit TestFilter(Mode mode = kUpperCase) : mode_(mode) {}
    Common::Error Filter(const std::string& text, std::string& filtered) const override {
        if (mode_ == kThrow) throw std::bad_alloc();
        if (mode_ == kError) return Common::Error::Make(0x1234, L"engine failure");
        filtered = text;
        for (char& c : filtered) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return {};
    }

private:
    Mode mode_;
};

// A failing or throwing item neither stops nor fails the run: the files it wrote are archived. An entry
// whose file was never written is left out, and the rest of the save goes on.
TEST(ReportManagerTest, RunsItemsInOrderWhateverEachReturns) {
    struct Throwing : SystemReport::Report {
        Common::Error Create(const fs::path&, FileEntries&) override { throw std::runtime_error("bad"); }
    };
    struct Ghost : SystemReport::Report {
        Common::Error Create(const fs::path& folder, FileEntries& entries) override {
            entries.push_back({folder / "never-written.nfo", L"msinfo.nfo", L"t", nullptr});
            return {};
        }
    };
    TempFolder temp;
    std::vector<std::string> ran;
    SystemReport::ReportManager manager;
    manager.Add(std::make_shared<FileItem>("b.txt", "second", &ran));
    manager.Add(std::make_shared<Throwing>());
    manager.Add(std::make_shared<FileItem>("partial.txt", "half", &ran, 0x40007));
    manager.Add(std::make_shared<Ghost>());
    manager.Add(std::make_shared<FileItem>("a.txt", "first", &ran));
    ASSERT_FALSE(manager.Create(temp.path()).Failed());
    EXPECT_EQ(ran, (std::vector<std::string>{"b.txt", "partial.txt", "a.txt"}));
    fs::path scratch = manager.ScratchFolder();
    ASSERT_FALSE(manager.SaveAs(temp.path() / "r.zip").Failed());
    EXPECT_FALSE(fs::exists(scratch)) << "scratch folder must be removed after SaveAs";
    auto zip = ReadZip(temp.path() / "r.zip");
    ASSERT_TRUE(zip);
    EXPECT_EQ(zip->size(), 3u);
    EXPECT_EQ(zip->at("b.txt").data, "second");
    EXPECT_EQ(zip->at("partial.txt").data, "half");
    EXPECT_EQ(zip->at("a.txt").data, "first");
}

// Stop from another thread while an item runs: the item is asked to stop, ends, and no further item starts.
TEST(ReportManagerTest, CancelStopsTheRunningItemAndStartsNoOther) {
    struct Blocking : SystemReport::Report {
        std::mutex lock;
        std::condition_variable changed;
        bool started = false, stopped = false;
        Common::Error Create(const fs::path&, FileEntries&) override {
            std::unique_lock guard(lock);
            started = true;
            changed.notify_all();
            changed.wait(guard, [this] { return stopped; });
            return {};
        }
        void Stop() override {
            std::lock_guard guard(lock);
            stopped = true;
            changed.notify_all();
        }
    };
    TempFolder temp;
    auto blocking = std::make_shared<Blocking>();
    std::vector<std::string> ran;
    SystemReport::ReportManager manager;
    manager.Add(blocking);
    manager.Add(std::make_shared<FileItem>("never.txt", "x", &ran));
    std::thread canceller([&] {
        std::unique_lock guard(blocking->lock);
        blocking->changed.wait(guard, [&] { return blocking->started; });
        guard.unlock();
        manager.Stop();
    });
    Common::Error result = manager.Create(temp.path());
    canceller.join();
    EXPECT_EQ(result.Code(), 0x4000fu);
    EXPECT_EQ(result.Message(), L"Canceled.");
    EXPECT_TRUE(ran.empty());
    EXPECT_TRUE(fs::is_empty(temp.path())) << "a canceled run leaves no scratch folder";
}

// A stop while the archive is written: no further entry, "Canceled.", and neither the unfinished archive
// nor the scratch folder stays; an old archive at the target is kept.
TEST(ReportManagerTest, CancelDuringSaveAsRemovesEverythingOfTheRun) {
    struct StoppingFilter : SystemReport::CopyFileFilter {
        SystemReport::ReportManager* manager = nullptr;
        mutable int calls = 0;
        Common::Error Filter(const std::string& text, std::string& filtered) const override {
            if (++calls == 1) manager->Stop();
            filtered = text;
            return {};
        }
    };
    TempFolder temp, scratchParent;
    WriteFile(temp.path() / "r.zip", "old");
    auto filter = std::make_shared<StoppingFilter>();
    struct Item : SystemReport::Report {
        std::shared_ptr<StoppingFilter> filter;
        Common::Error Create(const fs::path& folder, FileEntries& entries) override {
            for (const char* name : {"a.txt", "b.txt"}) {
                WriteFile(folder / name, name);
                entries.push_back({folder / name, std::wstring(name, name + 5), L"t", filter});
            }
            return {};
        }
    };
    SystemReport::ReportManager manager;
    filter->manager = &manager;
    auto item = std::make_shared<Item>();
    item->filter = filter;
    manager.Add(item);
    ASSERT_FALSE(manager.OpenTarget(temp.path() / "r.zip").Failed());
    ASSERT_FALSE(manager.Create(scratchParent.path()).Failed());
    EXPECT_EQ(manager.SaveAs(temp.path() / "r.zip").Code(), 0x4000fu);
    EXPECT_EQ(filter->calls, 1);
    EXPECT_EQ(TestSupport::ReadFile(temp.path() / "r.zip"), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(temp.path()), fs::directory_iterator()), 1);
    EXPECT_TRUE(fs::is_empty(scratchParent.path()));
}

// A folder or a read-only file as the target fails before anything is collected, and is left as it was.
TEST(ReportManagerTest, TargetThatMustNotBeReplacedIsRefusedAtOnce) {
    TempFolder temp;
    fs::create_directory(temp.path() / "folder.zip");
    WriteFile(temp.path() / "readonly.zip", "old");
    fs::permissions(temp.path() / "readonly.zip", fs::perms::owner_read);
    for (const char* name : {"folder.zip", "readonly.zip"}) {
        SCOPED_TRACE(name);
        SystemReport::ReportManager manager;
        Common::Error refused = manager.OpenTarget(temp.path() / name);
        EXPECT_EQ(refused.Code(), 0x4000au);
        EXPECT_EQ(refused.Message(), L"Error occurred while creating the file.");
    }
    EXPECT_TRUE(fs::is_empty(temp.path() / "folder.zip"));
    EXPECT_EQ(TestSupport::ReadFile(temp.path() / "readonly.zip"), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(temp.path()), fs::directory_iterator()), 2);
}

// The target and the archive being written are the run's own, whatever the spelling; other files are not.
TEST(ReportManagerTest, KnowsItsOwnFiles) {
    TempFolder temp;
    WriteFile(temp.path() / "r.zip", "old");
    WriteFile(temp.path() / "other.zip", "x");
    SystemReport::ReportManager manager;
    EXPECT_FALSE(manager.IsOwnFile(temp.path() / "r.zip"));
    ASSERT_FALSE(manager.OpenTarget(temp.path() / "r.zip").Failed());
    std::vector<fs::path> own;
    for (const auto& entry : fs::directory_iterator(temp.path())) {
        if (manager.IsOwnFile(entry.path())) own.push_back(entry.path().filename());
    }
    std::sort(own.begin(), own.end());
    ASSERT_EQ(own.size(), 2u);
    EXPECT_EQ(own[1], "r.zip");
    EXPECT_EQ(own[0].string().rfind(".SystemReport-", 0), 0u) << own[0];
    EXPECT_TRUE(manager.IsOwnFile(temp.path() / "." / "r.zip"));
}

TEST(ReportManagerTest, ScratchFolderOrTargetThatCannotBeMadeFails) {
    TempFolder temp;
    SystemReport::ReportManager manager;
    Common::Error noScratch = manager.Create(temp.path() / "missing" / "deeper");
    EXPECT_EQ(noScratch.Code(), 0x40007u);
    EXPECT_EQ(noScratch.Message(), L"Error occurred while opening the file.");

    manager.Add(std::make_shared<FileItem>("a.txt", "x", nullptr));
    ASSERT_FALSE(manager.Create(temp.path()).Failed());
    Common::Error missingFolder = manager.SaveAs(temp.path() / "no-such-folder" / "r.zip");
    EXPECT_EQ(missingFolder.Code(), 0x4000au);
    EXPECT_EQ(missingFolder.Message(), L"Error occurred while creating the file.");
    EXPECT_FALSE(fs::exists(temp.path() / "no-such-folder"));
}

// A folder entry: sub-folders only when recursive, settings scrubbed, filters applied to every file, and a
// file the filter cannot handle left out (links: product_data_tests).
class FolderEntryTest : public ::testing::Test {
protected:
    struct FolderItem : SystemReport::Report {
        std::vector<FileEntry> toAdd;
        Common::Error Create(const fs::path&, FileEntries& entries) override {
            entries.insert(entries.end(), toAdd.begin(), toAdd.end());
            return {};
        }
    };

    std::map<std::string, TestSupport::ZipTestEntry> Run(std::vector<FileEntry> entries) {
        auto item = std::make_shared<FolderItem>();
        item->toAdd = std::move(entries);
        SystemReport::ReportManager manager;
        manager.Add(item);
        EXPECT_FALSE(manager.Create(temp.path()).Failed());
        EXPECT_FALSE(manager.SaveAs(temp.path() / "r.zip").Failed());
        auto zip = ReadZip(temp.path() / "r.zip");
        EXPECT_TRUE(zip);
        return zip.value_or(std::map<std::string, TestSupport::ZipTestEntry>{});
    }

    TempFolder temp;
};

TEST_F(FolderEntryTest, RecursiveFlagDecidesWhetherSubFoldersAreStored) {
    fs::path data = temp.path() / "data";
    WriteFile(data / "top.log", "top");
    WriteFile(data / "sub" / "deep.log", "deep");
    auto recursive = Run({{data, L"App Data\\All\\", L"t", nullptr, true, true}});
    EXPECT_EQ(recursive.at("App Data/All/top.log").data, "top");
    EXPECT_EQ(recursive.at("App Data/All/sub/deep.log").data, "deep");
    EXPECT_TRUE(recursive.at("App Data/All/sub/").folder);
    // Not recursive, and a folder that is not there adds nothing.
    auto flat = Run({{data, L"flat/", L"t", nullptr, true, false}, {temp.path() / "absent", L"x/", L"t", nullptr, true, true}});
    EXPECT_EQ(flat.size(), 1u);
    EXPECT_EQ(flat.count("flat/top.log"), 1u);
}

TEST_F(FolderEntryTest, SettingsFilesLoseTheirPasswordsAndTheCopyIsCleanedUp) {
    fs::path data = temp.path() / "data";
    WriteFile(data / "OnlineBackup.ini",
              "[Account]\r\nUser=jdoe\r\nOBPassword=hunter2\r\nobsessionpassword = s3ss10n\r\nServer=x\r\n");
    auto zip = Run({{data, L"d/", L"t", nullptr, true, true}});
    EXPECT_EQ(zip.at("d/OnlineBackup.ini").data, "[Account]\r\nUser=jdoe\r\nServer=x\r\n");
    EXPECT_EQ(zip.count("d/OnlineBackup.ini.for_report"), 0u);
    EXPECT_FALSE(fs::exists(data / "OnlineBackup.ini.for_report"));
    EXPECT_NE(TestSupport::ReadFile(data / "OnlineBackup.ini").find("hunter2"), std::string::npos)
        << "the product's own file must stay as it was";
}

TEST_F(FolderEntryTest, FiltersApplyToEveryFileAndAFailingFilterLeavesTheFileOut) {
    fs::path data = temp.path() / "data";
    WriteFile(data / "a.log", "user name: jdoe");
    WriteFile(data / "sub" / "b.log", "more");
    WriteFile(data / "s.ini", "OBPassword=hunter2\nkeep=1\n");
    // A folder in the copy's place makes writing the scrubbed copy fail, as a read-only product folder
    // would: the settings are scrubbed and filtered from memory.
    fs::create_directories(data / "s.ini.for_report");
    auto filtered = Run({{data, L"f/", L"t", std::make_shared<TestFilter>(), true, true}});
    EXPECT_EQ(filtered.at("f/a.log").data, "USER NAME: JDOE");
    EXPECT_EQ(filtered.at("f/sub/b.log").data, "MORE");
    EXPECT_EQ(filtered.at("f/s.ini").data, "KEEP=1\n");
    // An error or an exception of the filter loses the file, and only the file: the save goes on.
    for (auto mode : {TestFilter::kError, TestFilter::kThrow}) {
        auto failing = Run({{data, L"g/", L"t", std::make_shared<TestFilter>(mode), true, true},
                            {data / "a.log", L"plain.log", L"t", nullptr}});
        EXPECT_EQ(failing.count("g/a.log") + failing.count("g/sub/b.log") + failing.count("g/s.ini"), 0u);
        EXPECT_EQ(failing.count("plain.log"), 1u);
    }
}

// "*.for_report" files: a scrubbed copy that an ended run left (marked, held by no one) is removed and not
// stored; one that a running run holds stays and is not stored; any other is the product's and is stored.
TEST_F(FolderEntryTest, LeftoverSettingsCopiesGoAndOthersOfThatNameStay) {
    const fs::path data = temp.path() / "data";
    WriteFile(data / "left.ini.for_report", "keep=1\n");
    WriteFile(data / "product.for_report", "product file");
    WriteFile(data / "late.ini.for_report", "not marked");
    const auto mark = std::chrono::file_clock::from_sys(std::chrono::sys_seconds(std::chrono::seconds(946684802)));
    fs::last_write_time(data / "left.ini.for_report", mark);
    SystemReport::OpenedEntry folder = SystemReport::OpenFolder::OpenRoot(data);
    ASSERT_TRUE(folder.folder);
    std::unique_ptr<SystemReport::OpenFile> held;
    ASSERT_TRUE(folder.folder->CreateReportCopy(fs::path("held.ini.for_report").native(), held).Succeeded());

    auto zip = Run({{data, L"d/", L"t", nullptr, true, true}});
    EXPECT_FALSE(fs::exists(data / "left.ini.for_report"));
    EXPECT_TRUE(fs::exists(data / "held.ini.for_report"));
    EXPECT_EQ(zip.count("d/left.ini.for_report") + zip.count("d/held.ini.for_report"), 0u);
    EXPECT_EQ(zip.at("d/product.for_report").data, "product file");
    EXPECT_EQ(zip.at("d/late.ini.for_report").data, "not marked");
}

// A product file cut short while it is read fails at its end (the writer then leaves it out); one that grows
// is read to its new end, as a log the product goes on writing does.
TEST(OpenFileTest, FileCutShortWhileReadFailsAndGrownFileIsReadWhole) {
    TempFolder temp;
    WriteFile(temp.path() / "cut.log", std::string(10000, 'a'));
    WriteFile(temp.path() / "grown.log", "start");
    SystemReport::OpenedEntry folder = SystemReport::OpenFolder::OpenRoot(temp.path());
    ASSERT_TRUE(folder.folder);
    SystemReport::OpenedEntry cut = folder.folder->Open(fs::path("cut.log").native());
    SystemReport::OpenedEntry grown = folder.folder->Open(fs::path("grown.log").native());
    ASSERT_TRUE(cut.file && grown.file);
    fs::resize_file(temp.path() / "cut.log", 100);
    WriteFile(temp.path() / "grown.log", "start and more");
    std::string text;
    EXPECT_EQ(cut.file->ReadAll(text).Code(), 0x40007u);
    ASSERT_TRUE(grown.file->ReadAll(text).Succeeded());
    EXPECT_EQ(text, "start and more");
}

// A folder fails to read on Linux (inside libstdc++'s stream buffer) and to open on Windows: an error either way.
TEST(FilteredCopyFileTest, UnreadableSourceIsAnError) {
    TempFolder temp;
    std::string filtered;
    for (const fs::path& source : {temp.path(), temp.path() / "missing"}) {
        EXPECT_EQ(SystemReport::FilteredCopyFile(source, TestFilter(), filtered).Code(), 0x40007u);
    }
}

}  // namespace
