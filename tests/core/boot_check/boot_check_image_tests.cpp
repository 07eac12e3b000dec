// The boot-chain check over disk images and stores made by the real tools of tests/data/boot and
// tests/data/boot_check (sgdisk, sfdisk, mkfs.vfat, mkntfs, hivexregedit), read through the DA-API, the
// mounted volumes and the hive reader.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>

#include "core/boot_check/bcd_hive_file.h"
#include "core/boot_check/boot_check.h"
#include "core/boot_check/hive_header.h"
#include "core/boot_check/machine_probe.h"
#include "core/da_api/da_api.h"
#include "core/hive/hive.h"

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

#ifdef _WIN32
constexpr char kPathListSeparator = ';';
void SetImagesVariable(const std::string& images) { _putenv_s("SYSTEM_REPORT_DISK_IMAGES", images.c_str()); }
#else
constexpr char kPathListSeparator = ':';
void SetImagesVariable(const std::string& images) { setenv("SYSTEM_REPORT_DISK_IMAGES", images.c_str(), 1); }
#endif

void UseImages(const std::string& images) {
    SetImagesVariable(images);
    DaApi::Initialize();
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
    UseImages(Fixture("gpt-esp.img").string() + kPathListSeparator + Fixture("mbr-ntfs.img").string());
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

// The PROBLEM and UNKNOWN lines of the check over one image.
std::multiset<std::string> FindingsOf(const std::filesystem::path& image) {
    UseImages(image.string());
    NoFirmware firmware;
    Machine machine = ProbeMachine(firmware);
    std::istringstream lines(BuildBootCheck(machine, OpenHiveBytes));
    std::multiset<std::string> findings;
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("PROBLEM ", 0) == 0 || line.rfind("UNKNOWN ", 0) == 0) findings.insert(line);
    return findings;
}

// Images whose one link sgdisk, sfdisk or hivexregedit broke (tests/data/boot_check/make_boot_chain_fixtures.sh):
// each adds its one PROBLEM line to what its healthy image shows.
TEST(BootCheckImageTest, EachBrokenLinkOfARealImageIsReportedOnce) {
    const std::filesystem::path images = SR_BOOT_CHAIN_FIXTURES;
    if (!std::filesystem::exists(images / "mbr-new-id.img")) GTEST_SKIP() << "boot chain images not made";
    // Every case breaks a link that a store shows; Wine's registry shows no key of a hive file it loads.
    std::unique_ptr<Hive::HiveStore> store;
    std::vector<std::unique_ptr<Hive::HiveKey>> keys;
    std::unique_ptr<Hive::HiveKey> root;
    if (Hive::OpenHiveFile(Fixture("bcd.hive"), store).Succeeded()) root = store->Root();
    if (!root || root->SubKeys(keys).Failed() || keys.empty()) {
        GTEST_SKIP() << "this system shows no key of a hive file";
    }
    const std::string gptStore = "PROBLEM disk 0 partition 1 \\EFI\\Microsoft\\Boot\\BCD ";
    struct Case {
        const char* healthy;
        const char* broken;
        std::string added;
    };
    const std::vector<Case> cases{
        {"gpt.img", "gpt-new-guid.img",
         gptStore + "{5eed0b00-1000-4000-8000-000000000001} 21000001 (OS device): GPT partition "
                    "5eed0b00-0002-4000-8000-000000000000 on disk 5eed0b00-0000-4000-8000-000000000000: no partition "
                    "has GUID 5eed0b00-0002-4000-8000-000000000000\r"},
        {"gpt.img", "gpt-no-default.img",
         gptStore + "{bootmgr} 23000003 (default object): names {5eed0b00-1000-4000-8000-0000000000ff}, which is "
                    "not in the store\r"},
        {"mbr.img", "mbr-new-id.img",
         "PROBLEM disk 0 partition 1 \\Boot\\BCD {5eed0b00-1000-4000-8000-000000000001} 21000001 (OS device): MBR "
         "partition at byte 1048576 on the disk with signature 5EED0B02: no disk has signature 5EED0B02\r"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.broken);
        std::multiset<std::string> healthy = FindingsOf(images / c.healthy);
#ifdef _WIN32
        // The Windows build reads NTFS only through the system's own mounts, which image files do not get.
        if (std::string(c.healthy) == "mbr.img") {
            std::cout << "not checked under Windows: " << c.broken << " (an NTFS image)\n";
            continue;
        }
#endif
        // Without firmware variables only the two firmware checks are UNKNOWN.
        EXPECT_EQ(healthy.size(), 2u);
        for (const std::string& line : healthy) EXPECT_EQ(line.rfind("UNKNOWN the firmware's", 0), 0u) << line;
        std::multiset<std::string> broken = FindingsOf(images / c.broken);
        for (const std::string& line : healthy) broken.erase(broken.find(line));
        EXPECT_EQ(broken, std::multiset<std::string>{c.added});
    }
}

}  // namespace
}  // namespace BootCheck
