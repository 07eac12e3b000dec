// A large settings file is scrubbed and stored in bounded memory: the peak of a child process that stores
// a folder holding a 200 MB settings file stays under three times the file's size.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "core/file/zip/zip_writer.h"
#include "products/imager/system_report/entry_writer.h"
#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;

TEST(SettingsScrubMemoryTest, A200MegabyteSettingsFileTakesUnderThreeTimesItsSize) {
    TestSupport::TempFolder temp;
    fs::create_directories(temp.path() / "product");
    const fs::path settings = temp.path() / "product" / "big.ini";
    {
        std::ofstream out(settings, std::ios::binary);
        const std::string line = "Key=" + std::string(94, 'v') + "\r\n";
        for (int i = 0; i < 2'000'000; ++i) {
            if (i == 1'000'000) out << "OBPassword=hunter2\r\n";
            out << line;
        }
    }
    const auto size = static_cast<long long>(fs::file_size(settings));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::unique_ptr<Zip::ZipWriter> zip;
        bool stored = Zip::ZipWriter::Create(temp.path() / "r.zip", zip).Succeeded();
        if (stored) {
            SystemReport::EntryWriter writer(*zip);
            stored = writer.StoreFolder(temp.path() / "product", "p/", true, nullptr).Succeeded() && zip->Commit().Succeeded();
        }
        _exit(stored ? 0 : 1);
    }
    int status = 0;
    rusage usage{};
    ASSERT_EQ(wait4(child, &status, 0, &usage), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    const long long peak = static_cast<long long>(usage.ru_maxrss) * 1024;
    std::printf("settings file %lld bytes, peak of the storing process %lld bytes (%.2fx)\n", size, peak,
                static_cast<double>(peak) / static_cast<double>(size));
#if !defined(__SANITIZE_ADDRESS__)
    // The address sanitizer's shadow memory and quarantine make its peak no measure of the code's.
    EXPECT_LT(peak, 3 * size);
#endif
    EXPECT_FALSE(fs::exists(temp.path() / "product" / "big.ini.for_report"));
    const auto entries = TestSupport::ReadZip(temp.path() / "r.zip");
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->count("p/big.ini"), 1u);
    const std::string& stored = entries->at("p/big.ini").data;
    EXPECT_EQ(static_cast<long long>(stored.size()), size - 20);
    EXPECT_EQ(stored.find("hunter2"), std::string::npos);
}

}  // namespace
