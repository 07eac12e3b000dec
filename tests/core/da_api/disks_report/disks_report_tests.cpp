// The disk layout report over scripted disks: the golden text of a whole document, and the edge cases
// of the rows, the flag letters, the error section and the sector pass.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "core/da_api/da_properties.h"
#include "core/da_api/disks_report.h"
#include "tests/core/da_api/disks_report/fake_da_api.h"

namespace DaApiTest {
namespace {

namespace Prop = DaApi::Prop;
using DaApi::Value;

constexpr Value kFsFat = 14, kFsNtfs = 10;

FakeObject MbrObject() {
    FakeObject mbr;
    mbr.properties.Set(Prop::kIsMbr, 1).Set(Prop::kFirstSector, 0).Set(Prop::kSectorCount, 1);
    return mbr;
}

FakeObject Fat16Partition() {
    FakeObject p;
    p.properties.Set(Prop::kPartitionNumber, 1).Set(Prop::kOsPartitionNumber, 1).Set(Prop::kActive, 1)
        .Set(Prop::kFirstSector, 2048).Set(Prop::kSectorCount, 4096).Set(Prop::kHasFileSystem, 1)
        .Set(Prop::kFsType, kFsFat).Set(Prop::kFsSectors, 4096).Set(Prop::kTypeByte, 0x06)
        .Text(Prop::kTypeName, "FAT16").Wide(Prop::kVolumeLabel, u"FAT\x01" u"DATA\u0141").Set(Prop::kCheckCount, 1);
    p.fileSystem.Set(Prop::kFatBits, 16).Set(Prop::kBlockSize, 4).Set(Prop::kBlockCount, 1015)
        .Set(Prop::kFreeBlocks, 1000).Set(Prop::kReservedSectors, 4).Set(Prop::kFatSize, 4).Set(Prop::kFatCount, 2)
        .Set(Prop::kRootEntries, 512).Set(Prop::kUsedRootEntries, 1).Set(Prop::kUsefulInfo, 15)
        .Set(Prop::kUsefulInfoUnit, 2048).Set(Prop::kFiles, 1).Set(Prop::kSerialNumberLength, 4)
        .Bytes(Prop::kSerialNumber, {0xCD, 0xAB, 0x34, 0x12});
    p.driveLetters = {{0, 'E'}, {3, 'F'}, {7, 0}, {8, '?'}};
    return p;
}

FakeObject ExtendedTable() {
    FakeObject e;
    e.properties.Set(Prop::kExtendedTable, 1).Set(Prop::kIsMetadata, 1).Set(Prop::kTypeByte, 0x05)
        .Text(Prop::kTypeName, "Extended").Set(Prop::kFirstSector, 6144).Set(Prop::kSectorCount, 1);
    return e;
}

FakeObject LogicalPartition() {
    FakeObject p;
    p.properties.Set(Prop::kPartitionNumber, 5).Set(Prop::kOsPartitionNumber, 65535).Set(Prop::kFirstSector, 6145)
        .Set(Prop::kSectorCount, 1855).Set(Prop::kTypeByte, 0x83).Text(Prop::kTypeName, "Linux")
        .Set(Prop::kHidden, 2).Set(Prop::kStructureErrors, 1 | 4).Set(Prop::kObjectError, 0xFFFF0001)
        .Wide(Prop::kErrorText, u"Overlaps partition 1");
    return p;
}

FakeObject Unallocated(Value first, Value count) {
    FakeObject u;
    u.properties.Set(Prop::kIsUnallocated, 1).Set(Prop::kFirstSector, first).Set(Prop::kSectorCount, count);
    return u;
}

// Disk 0: an MBR disk of 8192 sectors, fully readable.
FakeDisk MbrDisk() {
    FakeDisk d;
    d.properties.Set(Prop::kDiskNumber, 0).Set(Prop::kHasBiosNumber, 1).Set(Prop::kBiosNumber, 0x81)
        .Set(Prop::kSchemeKind, 2).Set(Prop::kLastSector, 8191).Set(Prop::kLogicalSectorSize, 512)
        .Set(Prop::kPhysicalSectorSize, 4096).Set(Prop::kInterface, 7).Set(Prop::kScsiHost, 2)
        .Set(Prop::kCylinders, 1).Set(Prop::kHeads, 128).Set(Prop::kSectorsPerTrack, 64)
        .Text(Prop::kModel, "Flash Disk").Text(Prop::kDeviceName, "/dev/sdb").Set(Prop::kDiskError, 0xFFFF0002);
    d.objects = {MbrObject(), Fat16Partition(), ExtendedTable(), LogicalPartition(), Unallocated(8000, 192)};
    d.content.assign(8192 * 512, 0);
    // The MBR: one FAT16 entry, one extended entry, the signature.
    std::uint8_t* mbr = d.content.data();
    const std::uint8_t entries[] = {0x80, 0x20, 0x21, 0x00, 0x06, 0x3F, 0x20, 0x00, 0x00, 0x08, 0, 0, 0x00, 0x10, 0, 0,
                                    0x00, 0x3F, 0x20, 0x00, 0x05, 0x3F, 0x3F, 0x00, 0x00, 0x18, 0, 0, 0x00, 0x08, 0, 0};
    std::copy(std::begin(entries), std::end(entries), mbr + 0x1BE);
    mbr[0x1B8] = 0x78; mbr[0x1B9] = 0x56; mbr[0x1BA] = 0x34; mbr[0x1BB] = 0x12;
    mbr[0x1FE] = 0x55; mbr[0x1FF] = 0xAA;
    // The FAT16 boot sector: only the fields the printout is checked for.
    std::uint8_t* boot = d.content.data() + 2048 * 512;
    boot[0] = 0xEB; boot[1] = 0x3C; boot[2] = 0x90;
    std::copy_n("MSDOS5.0", 8, boot + 3);
    boot[12] = 2; boot[13] = 4; boot[14] = 4; boot[16] = 2; boot[18] = 2; boot[20] = 0x10; boot[21] = 0xF8;
    boot[22] = 4; boot[38] = 0x29;
    std::copy_n("NO NAME    FAT16   ", 19, boot + 43);
    boot[510] = 0x55; boot[511] = 0xAA;
    // Sector 2049 of the partition: all 0xF6, as a freshly formatted medium.
    std::fill_n(boot + 512, 512, 0xF6);
    return d;
}

// Disk 1: a GPT disk whose device cannot be read.
FakeDisk UnreadableGptDisk() {
    FakeDisk d;
    d.properties.Set(Prop::kDiskNumber, 1).Set(Prop::kSchemeKind, 8).Set(Prop::kGptAlsoMbr, 1)
        .Set(Prop::kLastSector, (Value{1} << 31) - 1).Set(Prop::kLogicalSectorSize, 512).Set(Prop::kNoIo, 1)
        .Text(Prop::kGptDiskGuid, "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9");
    FakeObject primary;
    primary.properties.Set(Prop::kIsMetadata, 1).Set(Prop::kGptMetadataKind, 1).Set(Prop::kFirstSector, 1)
        .Set(Prop::kSectorCount, 33);
    FakeObject ntfs;
    ntfs.properties.Set(Prop::kPartitionNumber, 1).Set(Prop::kOsPartitionNumber, 3).Set(Prop::kFirstSector, 2048)
        .Set(Prop::kSectorCount, (Value{1} << 31) - 4096).Set(Prop::kHasFileSystem, 1).Set(Prop::kFsType, kFsNtfs)
        .Set(Prop::kFsSectors, (Value{1} << 31) - 4096).Set(Prop::kTypeByte, 0x07).Text(Prop::kTypeName, "Basic data")
        .Text(Prop::kGptTypeGuid, "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7")
        .Wide(Prop::kVolumeLabel, u"A long volume label").Set(Prop::kEncryption, 3).Set(Prop::kCheckAuthoritative, 1);
    ntfs.afterCheck.Set(Prop::kWarnings, 8);
    ntfs.fileSystem.Set(Prop::kBlockSize, 8).Set(Prop::kBlockCount, 268434944 / 8).Set(Prop::kFreeBlocks, 1);
    FakeObject backup;
    backup.properties.Set(Prop::kIsMetadata, 1).Set(Prop::kGptMetadataKind, 2)
        .Set(Prop::kFirstSector, (Value{1} << 31) - 33).Set(Prop::kSectorCount, 33);
    d.objects = {primary, ntfs, backup};
    return d;
}

FakeComputer Computer() {
    FakeComputer c;
    c.properties.Text(Prop::kComputerName, "TESTPC").Set(Prop::kFirmwareKind, 2).Set(Prop::kOsKind, 3)
        .Set(Prop::kUsedDriveLetters, (1 << 2) | (1 << 4) | (1 << 5)).Text(Prop::kPrimaryGroupName, "Office");
    c.typeByteNames = {{0x06, "FAT16"}, {0x05, "Extended"}, {0x07, "NTFS"}};
    c.typeByteFsTypes = {{0x06, kFsFat}};
    c.labelLengths = {{kFsFat, 11}, {kFsNtfs, 32}};
    c.freeSpaceTypes = {kFsFat};
    c.disks = {MbrDisk(), UnreadableGptDisk()};
    return c;
}

std::string Report(FakeComputer computer, Common::Error* error = nullptr) {
    InstallFake(std::move(computer));
    std::ostringstream out;
    Common::Error result = DaApi::WriteDisksReport(&out);
    if (error) *error = result;
    return out.str();
}

std::string ReadGolden(const char* name) {
    std::ifstream in(std::string(SR_TEST_DATA_DIR) + "/disks_report/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Checked line by line against the formats. Besides the columns, the summary, the MBR and extended-table
// printouts, the FAT16 boot sector and both file-system blocks, it holds these edge cases: BIOS number 0x81
// as "d(1)" and none as "d(?)"; a label with a control character and one above 255 ("FAT.DATA.", padded
// to 11) and one cut from 19 to 11 characters; an authoritative check's upper-case "W"; the error
// section's bare LF line ends; in the sector pass an all-zero line folded into " -0" inside a non-uniform
// sector, a sector of 0xF6 as " - All F6", a run of uniform sectors, and " - No I/O disk".
TEST(DisksReport, ScriptedDisksGolden) {
    Common::Error error;
    std::string text = Report(Computer(), &error);
    EXPECT_TRUE(error.Succeeded());
    std::string golden = ReadGolden("scripted_disks.txt");
    ASSERT_FALSE(golden.empty());
    EXPECT_EQ(text, golden);
}

// FAT12 in the FS column is the fixture golden text's (its 4K-sector disk).
TEST(DisksReport, SchemeStateOfAnObjectInTheFsColumn) {
    FakeComputer computer = Computer();
    computer.disks[0].objects[4].properties.Set(Prop::kSchemeState, 4098);
    EXPECT_NE(Report(computer).find("  96K             Read E                             ------\r\n"), std::string::npos);
}

TEST(DisksReport, ReadFailureEndsTheObjectsDump) {
    FakeComputer computer = Computer();
    computer.disks[0].readError = Common::Error::Make(0x40001, L"I/O error on the device.");
    std::string text = Report(computer);
    EXPECT_NE(text.find("\r\nPartition 0-1: - Disk Read I/O error on the device.\r\nMeta 0-*:"), std::string::npos);
    // Without the first sector there is no printout, and the report goes on.
    EXPECT_EQ(text.find("bootsector structure"), std::string::npos);
    EXPECT_NE(text.find("C7 and size 1T file system\r\n"), std::string::npos);
}

TEST(DisksReport, DumpStopsAtTheObjectsEndAndAtAnAbsurdSectorSize) {
    FakeComputer computer = Computer();
    computer.disks[0].objects[3].properties.Set(Prop::kSectorCount, 2);
    std::shared_ptr<FakeLog> log = InstallFake(computer);
    std::ostringstream out;
    DaApi::WriteDisksReport(&out);
    std::vector<std::pair<std::uint64_t, std::uint32_t>> expected = {{0, 1}, {2048, 4}, {6144, 1}, {6145, 2}, {8000, 1}};
    std::vector<std::pair<std::uint64_t, std::uint32_t>> dumps(log->reads.begin(), log->reads.begin() + 5);
    EXPECT_EQ(dumps, expected);

    computer.disks[0].properties.Set(Prop::kLogicalSectorSize, 1u << 30);
    std::string text = Report(computer);
    EXPECT_NE(text.find("MBR 0-*: - Disk Read The sector size 1073741824 is not supported."), std::string::npos);
}

TEST(DisksReport, AbsentPropertiesPrintTheirAbsentForms) {
    FakeComputer computer = Computer();
    computer.failingReads = {Prop::kModel, Prop::kTypeName, Prop::kVolumeLabel, Prop::kLabelLength,
                             Prop::kOsPartitionNumber, Prop::kFatBits};
    std::string text = Report(computer);
    EXPECT_NE(text.find("0-   d(1) MBR     4M USB   2-0-0                              \r\n"), std::string::npos);
    EXPECT_NE(text.find("  -1       EF--    2M    2M    2M FAT16  06                          Acc---\r\n"),
              std::string::npos);
    EXPECT_NE(text.find("Partition 0-1: of type 06 and size 2M\r\n"), std::string::npos);
}

TEST(DisksReport, WalksEndOverAnInterfaceThatKeepsAnswering) {
    FakeComputer computer = Computer();
    computer.endlessObjects = true;
    std::string text = Report(computer);
    // Each object once per pass, then the report goes on to the next disk.
    std::size_t rows = 0;
    for (std::size_t at = 0; (at = text.find("FAT16  06 FAT16", at)) != std::string::npos; ++at) ++rows;
    EXPECT_EQ(rows, 1u);
    EXPECT_NE(text.find("C7 and size 1T file system\r\n"), std::string::npos);
}

TEST(DisksReport, SelectionIsReleasedAtTheEnd) {
    std::shared_ptr<FakeLog> log = InstallFake(Computer());
    std::ostringstream out;
    DaApi::WriteDisksReport(&out);
    ASSERT_GE(log->sets.size(), 4u);
    std::vector<std::pair<PropertyId, Value>> tail(log->sets.end() - 4, log->sets.end());
    std::vector<std::pair<PropertyId, Value>> expected = {
        {Prop::kObjectHandle, 0}, {Prop::kDropDisk, 0}, {Prop::kDropVolumeGroup, 0}, {Prop::kReleaseComputer, 54}};
    EXPECT_EQ(tail, expected);
}

TEST(DisksReport, WithoutAComputerTheHeaderIsStillWritten) {
    FakeComputer computer = Computer();
    computer.noComputer = true;
    Common::Error error;
    std::string text = Report(computer, &error);
    EXPECT_TRUE(error.Failed());
    EXPECT_EQ(error.Message(), DaApi::Failure::kNoComputer);
    EXPECT_TRUE(text.starts_with("DA-API report version 3\r\n\r\nComputer \r\n          PS"));
    EXPECT_EQ(DaApi::WriteDisksReport(nullptr).Failed(), false);
}

TEST(DisksReport, VolumeGroupRowsTitlesAndErrors) {
    FakeComputer computer;
    FakeDisk group;
    group.properties.Set(Prop::kIsVolumeGroup, 1).Text(Prop::kGroupName, "vg0").Text(Prop::kGroupId, "GRP-1")
        .Set(Prop::kLogicalSectorSize, 512).Set(Prop::kDiskError, 0xFFFF0003);
    FakeObject volume;
    volume.properties.Set(Prop::kPartitionNumber, 2).Set(Prop::kVolumeLayout, 1).Set(Prop::kSectorCount, 2048)
        .Set(Prop::kContainerKind, 142).Text(Prop::kObjectGuid, "VOL-GUID").Set(Prop::kObjectError, 0xFFFF0004);
    FakeObject inner;
    inner.properties.Set(Prop::kSectorCount, 2048).Set(Prop::kContainerKind, 142);
    volume.inside = {inner};
    group.objects = {volume};
    computer.disks = {group};
    std::string text = Report(computer);
    EXPECT_NE(text.find("------\r\nVolume group \"vg0\" GRP-1\r\n      v(2)l(1)      1M\r\n"), std::string::npos);
    EXPECT_NE(text.find("  Volume group \"vg0\": <No STRID>\n    Volume 2: <No STRID>\n"), std::string::npos);
    EXPECT_NE(text.find("\r\nLVM volume VOL-GUID - Disk Read"), std::string::npos);
}

}  // namespace
}  // namespace DaApiTest
