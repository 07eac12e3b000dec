// In-memory volumes and a DA-API whose object walk crosses all disks, for the boot configuration report.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/da_api/da_api.h"
#include "core/da_api/ksx_report.h"
#include "core/disk/mounted_volume.h"

namespace KsxTest {

// A directory tree: sub-folders and files in the order the volume lists them.
struct FakeFolder {
    std::vector<std::pair<std::string, FakeFolder>> folders;
    std::vector<std::pair<std::string, std::string>> files;
    bool unreadable = false;          // listing and reading fail
    std::uint32_t readFailure = 0;    // reading a file fails with this Windows error code

    FakeFolder& Folder(const std::string& path);  // makes the folders of "A/B/C" as needed
    FakeFolder& File(const std::string& name, std::string bytes);
};

std::unique_ptr<Disk::VolumeDirectory> OpenFolder(std::shared_ptr<const FakeFolder> folder);

struct FakePartition {
    DaApi::Value number = 1;
    bool skip = false;
    bool mountable = true;                    // property 85 is non-zero
    std::shared_ptr<const FakeFolder> root;   // null: mounting fails
};

struct FakeBootDisk {
    DaApi::Value biosNumber = 0;  // 0: the disk has none (an image)
    std::vector<FakePartition> partitions;
};

// Installs the DA-API over `disks` as the process-wide instance.
void InstallDisks(std::vector<FakeBootDisk> disks);

// Runs the report over fake disks, with a scratch folder of the test's own.
class KsxReport : public ::testing::Test {
protected:
    void SetUp() override {
        scratch_ = std::filesystem::temp_directory_path() /
                   ("ksx-test-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        std::filesystem::remove_all(scratch_);
        std::filesystem::create_directories(scratch_);
    }
    void TearDown() override { std::filesystem::remove_all(scratch_); }

    std::string Report(std::vector<FakeBootDisk> disks) {
        InstallDisks(std::move(disks));
        std::ostringstream out;
        EXPECT_TRUE(DaApi::WriteKsxReport(&out, scratch_).Succeeded());
        return out.str();
    }

    static std::shared_ptr<const FakeFolder> Volume(FakeFolder folder) {
        return std::make_shared<const FakeFolder>(std::move(folder));
    }

    std::filesystem::path scratch_;
};

}  // namespace KsxTest
