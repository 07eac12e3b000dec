// The boot-chain check over fake machines: a healthy one, then one broken link at a time. Each broken
// link must add exactly its own findings (PROBLEM or UNKNOWN lines) to the healthy machine's.
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <sstream>

#include "boot_check_fakes.h"
#include "core/boot_check/bcd_elements.h"
#include "core/boot_check/boot_check.h"

namespace BootCheck {
namespace {

using namespace Testing;

const std::string kDiskGuid = "6a4b2c1d-0000-4000-8000-00000000d15c";
const std::string kEspGuid = "11111111-0000-4000-8000-0000000000e5";
const std::string kWindowsGuid = "22222222-0000-4000-8000-000000000c0c";
const std::string kLoader = "33333333-0000-4000-8000-000000001000";
const std::string kBootMgr(kBootManagerGuid);
constexpr std::uint32_t kSignature = 0x1234ABCD;

// GUID text to its stored bytes (first three fields little-endian).
std::vector<std::uint8_t> GuidBytes(const std::string& text) {
    std::string hex;
    for (char c : text)
        if (c != '-') hex += c;
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < 32; i += 2) bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    std::reverse(bytes.begin(), bytes.begin() + 4);
    std::reverse(bytes.begin() + 4, bytes.begin() + 6);
    std::reverse(bytes.begin() + 6, bytes.begin() + 8);
    return bytes;
}

void PutLe(std::vector<std::uint8_t>& bytes, std::size_t offset, std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// A partition device element: options GUID, descriptor (kind 6, size 56), body.
std::vector<std::uint8_t> PartitionDevice(bool gpt, const std::vector<std::uint8_t>& partition,
                                          const std::vector<std::uint8_t>& disk) {
    std::vector<std::uint8_t> bytes(16 + 56, 0);
    PutLe(bytes, 16, 6, 4);
    PutLe(bytes, 24, 56, 4);
    std::copy(partition.begin(), partition.end(), bytes.begin() + 32);
    PutLe(bytes, 52, gpt ? 0 : 1, 4);
    std::copy(disk.begin(), disk.end(), bytes.begin() + 56);
    return bytes;
}
std::vector<std::uint8_t> GptDevice(const std::string& partition, const std::string& disk) {
    return PartitionDevice(true, GuidBytes(partition), GuidBytes(disk));
}
std::vector<std::uint8_t> MbrDevice(std::uint64_t offset, std::uint32_t signature) {
    std::vector<std::uint8_t> partition(8), disk(4);
    PutLe(partition, 0, offset, 8);
    PutLe(disk, 0, signature, 4);
    return PartitionDevice(false, partition, disk);
}
std::vector<std::uint8_t> BootDevice() {
    std::vector<std::uint8_t> bytes(32, 0);
    PutLe(bytes, 16, 5, 4);
    PutLe(bytes, 24, 16, 4);
    return bytes;
}

// A hive base block with the two sequence numbers and a checksum over its first 508 bytes.
std::string HiveFile(std::uint32_t primary, std::uint32_t secondary, std::uint32_t checksumDelta = 0) {
    std::vector<std::uint8_t> block(4096, 0);
    std::copy_n("regf", 4, block.begin());
    PutLe(block, 4, primary, 4);
    PutLe(block, 8, secondary, 4);
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < 508; i += 4)
        sum ^= block[i] | block[i + 1] << 8 | block[i + 2] << 16 | static_cast<std::uint32_t>(block[i + 3]) << 24;
    PutLe(block, 508, sum + checksumDelta, 4);
    return std::string(block.begin(), block.end());
}

// A FAT32-style boot sector: a jump, 512 bytes per sector, the hidden sectors, the 0x55AA mark.
std::vector<std::uint8_t> BootSector(std::uint32_t hidden) {
    std::vector<std::uint8_t> sector(512, 0);
    sector[0] = 0xEB, sector[1] = 0x58, sector[2] = 0x90;
    PutLe(sector, 11, 512, 2);
    PutLe(sector, 28, hidden, 4);
    sector[510] = 0x55, sector[511] = 0xAA;
    return sector;
}

struct Fixture {
    Machine machine;
    std::map<std::string, FakeObject> objects;
    std::map<std::string, std::string> files;  // of the partition that holds the store
    std::size_t storePartition = 0;
};

// A UEFI machine: one GPT disk with an EFI system partition (firmware file, store) and Windows.
Fixture HealthyUefi() {
    Fixture f;
    Firmware& firmware = f.machine.firmware;
    firmware.variables = {0x0000, 0x0001};
    firmware.bootOrder = std::vector<std::uint16_t>{0x0000, 0x0001};
    FirmwareEntry windows;
    windows.number = 0x0000;
    windows.description = "Windows Boot Manager";
    windows.hardDrive = HardDriveNode{true, kEspGuid, 0, 1, 2048, 204800};
    windows.filePath = "\\EFI\\Microsoft\\Boot\\bootmgfw.efi";
    windows.bcdObject = kBootMgr;
    FirmwareEntry shell;
    shell.number = 0x0001;
    shell.description = "UEFI Shell";
    firmware.entries = {windows, shell};

    MachineDisk disk;
    disk.gpt = true;
    disk.guid = kDiskGuid;
    disk.sector0.assign(512, 0);
    Partition esp;
    esp.number = 1, esp.start = 2048, esp.size = 204800, esp.guid = kEspGuid;
    esp.bootSector = BootSector(2048);
    Partition windowsPartition;
    windowsPartition.number = 2, windowsPartition.start = 206848, windowsPartition.size = 4000000;
    windowsPartition.guid = kWindowsGuid;
    windowsPartition.bootSector = BootSector(206848);
    disk.partitions.push_back(std::move(esp));
    disk.partitions.push_back(std::move(windowsPartition));
    f.machine.disks.push_back(std::move(disk));

    f.files = {{"EFI/Microsoft/Boot/bootmgfw.efi", "MZ"}, {"EFI/Microsoft/Boot/BCD", HiveFile(7, 7)}};
    f.objects[kBootMgr] = {0x10100002,
                           {{Element::kApplicationDevice, BinaryValue(GptDevice(kEspGuid, kDiskGuid))},
                            {Element::kDescription, StringValue("Windows Boot Manager")},
                            {Element::kDefaultObject, StringValue("{" + kLoader + "}")},
                            {Element::kDisplayOrder, MultiStringValue({"{" + kLoader + "}"})}}};
    f.objects[kLoader] = {0x10200003,
                          {{Element::kApplicationDevice, BinaryValue(GptDevice(kWindowsGuid, kDiskGuid))},
                           {Element::kOsDevice, BinaryValue(GptDevice(kWindowsGuid, kDiskGuid))},
                           {Element::kDescription, StringValue("Windows 10")}}};
    return f;
}

// A BIOS machine without UEFI: one MBR disk whose active partition holds \Boot\BCD.
Fixture HealthyBios() {
    Fixture f;
    f.machine.firmware.unavailable = "no UEFI";
    f.machine.biosFirmware = true;
    MachineDisk disk;
    disk.mbr = true;
    disk.signature = kSignature;
    disk.biosFirst = true;
    disk.sector0.assign(512, 0);
    Partition system;
    system.number = 1, system.start = 2048, system.size = 1024000, system.active = true;
    system.bootSector = BootSector(2048);
    disk.partitions.push_back(std::move(system));
    f.machine.disks.push_back(std::move(disk));
    f.files = {{"bootmgr", "code"}, {"Boot/BCD", HiveFile(3, 3)}};
    f.objects[kBootMgr] = {0x10100002,
                           {{Element::kApplicationDevice, BinaryValue(BootDevice())},
                            {Element::kDefaultObject, StringValue("{" + kLoader + "}")}}};
    f.objects[kLoader] = {0x10200003, {{Element::kOsDevice, BinaryValue(MbrDevice(2048 * 512, kSignature))}}};
    return f;
}

std::string RunCheck(Fixture& f) {
    f.machine.disks[0].partitions[f.storePartition].volume = std::make_unique<FakeVolume>(f.files);
    HiveOpener opener = [&](const std::string&, std::unique_ptr<Hive::HiveStore>& store) {
        store = MakeFakeStore(f.objects);
        return Common::Error{};
    };
    return BuildBootCheck(f.machine, opener);
}

// The PROBLEM and UNKNOWN lines of a text.
std::multiset<std::string> Findings(const std::string& text) {
    std::multiset<std::string> findings;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("PROBLEM ", 0) == 0 || line.rfind("UNKNOWN ", 0) == 0) findings.insert(line);
    return findings;
}

TEST(BootCheckTest, HealthyMachinesHaveNoProblem) {
    Fixture uefi = HealthyUefi();
    std::string text = RunCheck(uefi);
    EXPECT_EQ(text.rfind("Boot chain: no problem found\r\n", 0), 0u) << text;
    EXPECT_TRUE(Findings(text).empty()) << text;
    EXPECT_NE(text.find("OK disk 0 partition 1 \\EFI\\Microsoft\\Boot\\BCD {bootmgr} " + kBootMgr +
                        ": boot manager \"Windows Boot Manager\"\r\n"),
              std::string::npos)
        << text;

    // Without UEFI the firmware checks say why they did not run, and the rest still runs.
    Fixture bios = HealthyBios();
    text = RunCheck(bios);
    EXPECT_EQ(text.rfind("Boot chain: no problem found\r\n", 0), 0u) << text;
    EXPECT_EQ(Findings(text), (std::multiset<std::string>{
                                  "UNKNOWN the firmware's boot variables cannot be read: no UEFI\r",
                                  "UNKNOWN the firmware's boot variables cannot be read: no UEFI\r"}));
}

struct BrokenLink {
    const char* name;
    bool bios;
    std::function<void(Fixture&)> do_break;
    std::vector<std::string> added;  // the findings it adds, by their start
};

TEST(BootCheckTest, EachBrokenLinkIsReportedOnce) {
    const std::string store = "disk 0 partition 1 \\EFI\\Microsoft\\Boot\\BCD ";
    const std::vector<BrokenLink> links{
        {"boot order names a missing variable", false,
         [](Fixture& f) { f.machine.firmware.bootOrder->push_back(0x0003); },
         {"PROBLEM BootOrder lists 0003, but Boot0003 does not exist"}},
        {"entry on a partition no disk has", false,
         [](Fixture& f) { f.machine.firmware.entries[0].hardDrive->partitionGuid = kLoader; },
         {"PROBLEM Boot0000 \"Windows Boot Manager\": no partition has GUID " + kLoader,
          "UNKNOWN Boot0000 \"Windows Boot Manager\" BCDOBJECT={bootmgr}: the entry's partition is on no disk"}},
        {"entry with another start", false, [](Fixture& f) { f.machine.firmware.entries[0].hardDrive->start = 4096; },
         {"PROBLEM Boot0000 \"Windows Boot Manager\": disk 0 partition 1 starts at sector 2048 and holds 204800 "
          "sectors; the entry says 4096 and 204800"}},
        {"boot manager file missing", false, [](Fixture& f) { f.files.erase("EFI/Microsoft/Boot/bootmgfw.efi"); },
         {"PROBLEM Boot0000 \"Windows Boot Manager\": \\EFI\\Microsoft\\Boot\\bootmgfw.efi is missing on disk 0 "
          "partition 1"}},
        {"device element with an old disk GUID", false,
         [](Fixture& f) {
             f.objects[kLoader].elements[Element::kApplicationDevice] = BinaryValue(GptDevice(kWindowsGuid, kLoader));
         },
         {"PROBLEM " + store + "{" + kLoader + "} 11000001 (application device): GPT partition " + kWindowsGuid +
          " on disk " + kLoader + ": that partition is disk 0 partition 2, whose disk GUID is " + kDiskGuid}},
        {"default names a missing object", false,
         [](Fixture& f) { f.objects[kBootMgr].elements[Element::kDefaultObject] = StringValue("{" + kEspGuid + "}"); },
         {"PROBLEM " + store + "{bootmgr} 23000003 (default object): names {" + kEspGuid +
          "}, which is not in the store"}},
        {"firmware names a missing object", false, [](Fixture& f) { f.machine.firmware.entries[0].bcdObject = kEspGuid; },
         {"PROBLEM Boot0000 \"Windows Boot Manager\" BCDOBJECT={" + kEspGuid +
          "}: no such object in the BCD stores of disk 0 partition 1"}},
        {"store left mid-write", false, [](Fixture& f) { f.files["EFI/Microsoft/Boot/BCD"] = HiveFile(8, 7); },
         {"PROBLEM " + store.substr(0, store.size() - 1) + ": the header's sequence numbers differ (8, 7)"}},
        {"store with a wrong checksum", false,
         [](Fixture& f) { f.files["EFI/Microsoft/Boot/BCD"] = HiveFile(7, 7, 1); },
         {"PROBLEM " + store.substr(0, store.size() - 1) + ": the header checksum is"}},
        {"device element cut short", false,
         [](Fixture& f) {
             f.objects[kLoader].elements[Element::kOsDevice] = BinaryValue(std::vector<std::uint8_t>(24, 0));
         },
         {"UNKNOWN " + store + "{" + kLoader + "} 21000001 (OS device): a device element of 24 bytes"}},
        {"object list with odd bytes", false,
         [](Fixture& f) { f.objects[kBootMgr].elements[Element::kDisplayOrder].data.push_back(0); },
         {"UNKNOWN " + store + "{bootmgr} 24000001 (display order): an object list of 81 bytes (odd)"}},
        {"object type out of range", false, [](Fixture& f) { f.objects[kLoader].type = 0x70000003; },
         {"UNKNOWN " + store + "{" + kLoader + "}: type word 0x70000003 is out of range"}},
        {"disk signature changed", true, [](Fixture& f) { f.machine.disks[0].signature = 0x0BADF00D; },
         {"PROBLEM disk 0 partition 1 \\Boot\\BCD {" + kLoader + "} 21000001 (OS device): MBR partition at byte " +
          "1048576 on the disk with signature 1234ABCD: no disk has signature 1234ABCD"}},
        {"partition offset changed", true,
         [](Fixture& f) {
             f.objects[kLoader].elements[Element::kOsDevice] = BinaryValue(MbrDevice(63 * 512, kSignature));
         },
         {"PROBLEM disk 0 partition 1 \\Boot\\BCD {" + kLoader + "} 21000001 (OS device): MBR partition at byte " +
          "32256 on the disk with signature 1234ABCD: disk 0 has no partition starting there"}},
        {"two active partitions", true,
         [](Fixture& f) {
             Partition second;
             second.number = 2, second.start = 1026048, second.size = 2048, second.active = true;
             second.bootSector = BootSector(1026048);
             f.machine.disks[0].partitions.push_back(std::move(second));
         },
         {"PROBLEM disk 0: 2 partitions are active (1, 2)"}},
        {"no active partition on the BIOS disk", true,
         [](Fixture& f) {
             f.machine.disks[0].partitions[0].active = false;
             std::vector<std::uint8_t>& mbr = f.machine.disks[0].sector0;
             static const char kCode[] = "\x33\xC0\xFA\x8E\xD8\x8E\xD0\xBC\x00\x7C Missing operating system.";
             const std::string code(kCode, sizeof kCode - 1);
             std::copy(code.begin(), code.end(), mbr.begin());
         },
         {"PROBLEM disk 0: no partition is active"}},
        {"hidden sectors differ", true, [](Fixture& f) { f.machine.disks[0].partitions[0].bootSector = BootSector(63); },
         {"PROBLEM disk 0 partition 1: hidden sectors 63, but the partition starts at 2048"}},
    };
    for (const BrokenLink& link : links) {
        SCOPED_TRACE(link.name);
        Fixture healthy = link.bios ? HealthyBios() : HealthyUefi();
        std::multiset<std::string> before = Findings(RunCheck(healthy));
        Fixture broken = link.bios ? HealthyBios() : HealthyUefi();
        link.do_break(broken);
        std::string text = RunCheck(broken);
        std::multiset<std::string> after = Findings(text);
        for (const std::string& line : before) {
            auto found = after.find(line);
            ASSERT_NE(found, after.end()) << "lost: " << line << "\n" << text;
            after.erase(found);
        }
        ASSERT_EQ(after.size(), link.added.size()) << text;
        std::size_t problems = 0;
        for (const std::string& expected : link.added) {
            problems += expected.rfind("PROBLEM", 0) == 0;
            EXPECT_TRUE(std::any_of(after.begin(), after.end(),
                                    [&](const std::string& line) { return line.rfind(expected, 0) == 0; }))
                << "missing: " << expected << "\n" << text;
        }
        std::string verdict = problems == 0 ? "Boot chain: no problem found\r\n"
                                            : "Boot chain: " + std::to_string(problems) + " problem(s) found\r\n";
        EXPECT_EQ(text.rfind(verdict, 0), 0u) << text;
    }
}

}  // namespace
}  // namespace BootCheck
