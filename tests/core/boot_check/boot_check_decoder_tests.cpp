// The boot-chain check's decoders: BCD device elements and names over bytes, and the boot-code table
// over sectors that real tools wrote (tests/data/boot_check/make_boot_code_fixtures.sh).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "core/boot_check/bcd_elements.h"
#include "core/boot_check/boot_code.h"

namespace BootCheck {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes FromHex(std::string_view hex) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size();) {
        if (hex[i] == ' ') {
            ++i;
            continue;
        }
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
        i += 2;
    }
    return bytes;
}

// Device elements as stores hold them: options GUID, then descriptor kind, flags, size, reserved, body.
const std::string kZeroGuid = "00000000000000000000000000000000 ";
// GPT partition 11111111-2222-3333-4455-66778899aabb on disk 01020304-0506-0708-090a-0b0c0d0e0f10.
const std::string kGptBody =
    "1111111122223333445566778899aabb 00000000 00000000 0403020106050807090a0b0c0d0e0f10";
const std::string kGptPartition = "06000000 00000000 38000000 00000000 " + kGptBody;
// MBR partition at byte 1048576 (0x100000) on the disk with signature 0xAABBCCDD.
const std::string kMbrPartition =
    "06000000 00000000 38000000 00000000 0000100000000000 0000000000000000 00000000 01000000 "
    "DDCCBBAA000000000000000000000000";

struct DeviceCase {
    const char* name;
    std::string hex;
    std::optional<Device::Kind> kind;  // nothing: malformed
    std::string expect;                // the partition in words, or the reason it is malformed
};

std::string Describe(const Device& device) {
    if (!device.partition) return device.description;
    const DevicePartition& partition = *device.partition;
    std::string text = device.ramdisk ? "ramdisk " : "";
    if (partition.gpt) return text + partition.partitionGuid + " on " + partition.diskGuid;
    return text + std::to_string(partition.offsetBytes) + " on " + std::to_string(partition.diskSignature);
}

TEST(BcdDeviceTest, DecodesPartitionsAndRejectsMalformedElements) {
    const std::vector<DeviceCase> cases{
        {"gpt", kZeroGuid + kGptPartition, Device::Kind::Partition,
         "11111111-2222-3333-4455-66778899aabb on 01020304-0506-0708-090a-0b0c0d0e0f10"},
        {"mbr", kZeroGuid + kMbrPartition, Device::Kind::Partition, "1048576 on 2864434397"},
        // A RAM disk: block I/O kind 3, image base, size and offset, then the nested partition.
        {"ramdisk", kZeroGuid + "00000000 00000000 60000000 00000000 03000000 " + std::string(40, '0') + " " +
                        kGptPartition,
         Device::Kind::Partition,
         "ramdisk 11111111-2222-3333-4455-66778899aabb on 01020304-0506-0708-090a-0b0c0d0e0f10"},
        {"boot", kZeroGuid + "05000000 00000000 10000000 00000000", Device::Kind::Boot,
         "the device the boot manager started from"},
        {"short element", kZeroGuid + "06000000 00000000", std::nullopt,
         "a device element of 24 bytes is shorter than its header (32)"},
        {"short partition", kZeroGuid + "06000000 00000000 20000000 00000000 " + std::string(32, '0'),
         std::nullopt, "a partition descriptor of 32 bytes is shorter than 56"},
        {"longer than element", kZeroGuid + "06000000 00000000 40000000 00000000 " + kGptBody, std::nullopt,
         "a device descriptor of 64 bytes is longer than its parent's 56"},
        {"nested longer than parent", kZeroGuid + "00000000 00000000 60000000 00000000 03000000 " +
                                          std::string(40, '0') + " 06000000 00000000 80000000 00000000 " + kGptBody,
         std::nullopt, "a nested descriptor of 128 bytes is longer than its parent's 56"},
        {"size below header", kZeroGuid + "06000000 00000000 08000000 00000000", std::nullopt,
         "a device descriptor declares 8 bytes, less than its header"},
    };
    for (const DeviceCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::string why;
        Bytes bytes = FromHex(c.hex);
        std::optional<Device> device = DecodeDevice(bytes, why);
        ASSERT_EQ(device.has_value(), c.kind.has_value()) << why;
        if (device) {
            EXPECT_EQ(device->kind, *c.kind);
            EXPECT_EQ(Describe(*device), c.expect);
        } else {
            EXPECT_EQ(why, c.expect);
        }
    }
}

TEST(BcdNamesTest, NamesObjectsAndTypesAndRejectsWhatIsOutOfRange) {
    EXPECT_EQ(ObjectLabel(*ParseGuidText("{9DEA862C-5CDD-4E70-ACC1-F32B344D4795}")), "{bootmgr}");
    EXPECT_EQ(ObjectLabel("a5a30fa2-3d06-4e9f-b5f4-a01df9d1fcba"), "{fwbootmgr}");
    EXPECT_EQ(ObjectLabel("11111111-2222-3333-4455-66778899aabb"), "{11111111-2222-3333-4455-66778899aabb}");
    EXPECT_FALSE(ParseGuidText("{9dea862c-5cdd-4e70-acc1-f32b344d479}"));
    EXPECT_EQ(ObjectTypeName(0x10100002), "boot manager");
    EXPECT_EQ(ObjectTypeName(0x10200003), "OS loader");
    EXPECT_EQ(ObjectTypeName(0x101FFFFF), "firmware application");
    EXPECT_EQ(ObjectTypeName(0x20200003), "inheritable settings");
    EXPECT_FALSE(ObjectTypeName(0x50000000));
    // An object list must be whole UTF-16 units.
    EXPECT_FALSE(Utf16Strings(FromHex("7B003100 32")));
    EXPECT_EQ(*Utf16Strings(FromHex("41004200 0000 43000000")), (std::vector<std::string>{"AB", "C"}));
}

std::filesystem::path Fixtures() { return SR_BOOT_CODE_FIXTURES; }

Bytes ReadFixture(const char* name) {
    std::ifstream file(Fixtures() / name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

std::string ReadText(const char* name) {
    Bytes bytes = ReadFixture(name);
    return std::string(bytes.begin(), bytes.end());
}

TEST(BootCodeTest, NamesTheCodeRealToolsWrite) {
    if (!std::filesystem::exists(Fixtures() / "done")) GTEST_SKIP() << "boot code fixtures not made (a tool is missing)";
    struct Case {
        const char* file;
        SectorKind kind;
        std::string expect;
    };
    std::string unknownHash = ReadText("unknown.sha256");
    unknownHash.resize(64);
    const std::vector<Case> cases{
        {"syslinux-mbr.bin", SectorKind::Mbr, "syslinux MBR"},
        {"syslinux-gptmbr.bin", SectorKind::Mbr, "syslinux GPT MBR"},
        {"grub-boot.img", SectorKind::Mbr, "GRUB 2 MBR"},
        {"fat32-boot.bin", SectorKind::BootSector, "formatting tool's stub, not bootable"},
        {"ntfs-boot.bin", SectorKind::BootSector, "formatting tool's stub, not bootable"},
        {"unknown.bin", SectorKind::Mbr, "unknown code, SHA-256 " + unknownHash},
    };
    for (const Case& c : cases) EXPECT_EQ(IdentifyBootCode(ReadFixture(c.file), c.kind), c.expect) << c.file;
    EXPECT_EQ(IdentifyBootCode(Bytes(512, 0), SectorKind::Mbr), "empty (zeroed code)");
    EXPECT_EQ(IdentifyBootCode(Bytes(100, 0), SectorKind::Mbr), "unreadable");
}

TEST(BootCodeTest, ReadsHiddenSectorsAsTheFormattingToolsWroteThem) {
    if (!std::filesystem::exists(Fixtures() / "done")) GTEST_SKIP() << "boot code fixtures not made (a tool is missing)";
    std::string minfo = ReadText("fat32.minfo");
    std::size_t at = minfo.find("hidden sectors: ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(HiddenSectors(ReadFixture("fat32-boot.bin")), std::stoul(minfo.substr(at + 16)));
    EXPECT_EQ(HiddenSectors(ReadFixture("ntfs-boot.bin")), 4096u);  // mkntfs -p 4096
    EXPECT_FALSE(HiddenSectors(ReadFixture("grub-boot.img")));
}

}  // namespace
}  // namespace BootCheck
