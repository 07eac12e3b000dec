// The boot configuration report over images made by the real tools (a GPT disk with an EFI system partition
// filled by mtools, an MBR disk with an NTFS system partition, a FAT12 floppy): the whole text against its
// golden copy, checked by hand against the images' own listings (mdir, hivexsh).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "core/da_api/da_api_impl.h"
#include "core/da_api/ksx_report.h"
#include "core/disk/block_device.h"

namespace {

TEST(KsxFixtures, ReportOverTheBootImagesMatchesItsGoldenCopy) {
    std::filesystem::path fixtures(SR_BOOT_FIXTURES_DIR);
    if (!std::filesystem::exists(fixtures / "floppy.img")) GTEST_SKIP() << "no boot fixtures (make_boot_fixtures.sh needs root)";
    std::vector<std::filesystem::path> images{fixtures / "gpt-esp.img", fixtures / "mbr-ntfs.img", fixtures / "floppy.img"};
    DaApi::ComputerFacts computer;
    computer.name = "GOLDEN";
    DaApi::Install(DaApi::MakeMachineInterface(Disk::MakeImageSource(images), computer));
    std::filesystem::path scratch = std::filesystem::temp_directory_path() / "ksx-fixture-scratch";
    std::filesystem::create_directories(scratch);
    std::ostringstream out;
    ASSERT_TRUE(DaApi::WriteKsxReport(&out, scratch).Succeeded());
    std::ifstream golden(std::string(SR_TEST_DATA_DIR) + "/boot/fixture_ksx.txt", std::ios::binary);
    EXPECT_EQ(out.str(), std::string(std::istreambuf_iterator<char>(golden), {}));
    if (const char* keep = std::getenv("SR_KEEP_KSX")) std::ofstream(keep, std::ios::binary) << out.str();
    std::filesystem::remove_all(scratch);
}

}  // namespace
