// The boot-chain check over disk images and a store made by the real tools of
// tests/data/boot/make_boot_fixtures.sh (sgdisk, sfdisk, mkfs.vfat, mkntfs, hivexregedit), read through the
// DA-API, the mounted volumes and the hive reader.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "core/boot_check/bcd_hive_file.h"
#include "core/boot_check/boot_check.h"
#include "core/boot_check/hive_header.h"
#include "core/boot_check/machine_probe.h"
#include "core/da_api/da_api.h"

namespace BootCheck {
namespace {

std::filesystem::path Fixture(const char* name) { return std::filesystem::path(SR_BOOT_FIXTURES_DIR) / name; }

std::vector<std::uint8_t> ReadAll(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(file), {});
}

// hivex refuses a hive whose header checksum is wrong, so a store it wrote and reads back has a right one.
TEST(HiveHeaderTest, ReadsTheBaseBlockHivexWrote) {
    std::vector<std::uint8_t> hive = ReadAll(Fixture("bcd.hive"));
    if (hive.empty()) GTEST_SKIP() << "boot fixtures not made (a tool or root is missing)";
    HiveHeader header;
    ASSERT_TRUE(ReadHiveHeader(hive, header));
    EXPECT_TRUE(header.signature);
    EXPECT_TRUE(header.SequencesEqual());
    EXPECT_TRUE(header.ChecksumRight());
    std::vector<std::uint8_t> midWrite = hive;
    ++midWrite[4];  // the primary sequence number, as a write in progress leaves it
    ASSERT_TRUE(ReadHiveHeader(midWrite, header));
    EXPECT_FALSE(header.SequencesEqual());
    EXPECT_FALSE(header.ChecksumRight());
    EXPECT_FALSE(ReadHiveHeader(std::span(hive).first(511), header));
}

class NoFirmware final : public Uefi::VariableStore {
public:
    bool BootVariablesAllowed() override { return false; }
    Uefi::VariablePtr CreateVariable(const Uefi::Guid&, std::wstring, std::uint32_t) override { return nullptr; }
    Common::Error EnumerateBootEntryIds(std::vector<std::uint16_t>&) override { return {}; }
};

// A machine without UEFI whose disks are images: the file is still written, and says what could not run.
TEST(BootCheckImageTest, MachineWithoutUefiStillGetsItsCheck) {
    if (!std::filesystem::exists(Fixture("mbr-ntfs.img"))) GTEST_SKIP() << "boot fixtures not made";
    std::string images = Fixture("gpt-esp.img").string() + (SR_PATH_LIST_SEPARATOR + Fixture("mbr-ntfs.img").string());
#ifdef _WIN32
    _putenv_s("SYSTEM_REPORT_DISK_IMAGES", images.c_str());
#else
    setenv("SYSTEM_REPORT_DISK_IMAGES", images.c_str(), 1);
#endif
    DaApi::Initialize();
    NoFirmware firmware;
    Machine machine = ProbeMachine(firmware);
    std::string text = BuildBootCheck(machine, OpenHiveBytes);
    ASSERT_EQ(machine.disks.size(), 2u) << text;
    EXPECT_EQ(text.rfind("Boot chain: ", 0), 0u);
    const std::string noFirmware = "UNKNOWN the firmware's boot variables cannot be read: ";
    EXPECT_NE(text.find("1. Firmware entries\r\n" + noFirmware), std::string::npos) << text;
    EXPECT_NE(text.find("4. Firmware entries to BCD objects\r\n" + noFirmware), std::string::npos) << text;
    // sfdisk writes no boot code; mkntfs -p 2048 records the partition's start.
    for (const char* line : {"OK disk 1 MBR: empty (zeroed code)\r\n",
                             "OK disk 1: partition 1 is the one active partition\r\n",
                             "OK disk 1 partition 1: hidden sectors equal the partition's start (2048)\r\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
}

}  // namespace
}  // namespace BootCheck
