// The sector hex dump, the boot-sector printouts and the partition-table printout, over byte vectors laid
// out by hand after the published FAT, NTFS and MBR layouts.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "core/da_api/bios_parameters_dump.h"
#include "core/da_api/boot_sector_dump.h"
#include "core/da_api/partition_table_dump.h"
#include "core/da_api/sector_dump.h"

namespace DaApi {
namespace {

using Bytes = std::vector<std::uint8_t>;

void Put(Bytes& b, std::size_t offset, std::uint64_t value, int width) {
    for (int i = 0; i < width; ++i) b[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}
void PutText(Bytes& b, std::size_t offset, const char* text) { std::memcpy(b.data() + offset, text, std::strlen(text)); }

std::string Dump(const Bytes& data, std::size_t sectorSize, std::uint64_t first,
                 std::optional<DiskGeometry> geometry = std::nullopt) {
    std::string out;
    AppendSectorDump(out, data, sectorSize, first, geometry);
    return out;
}

TEST(SectorDump, UniformSectorPrintsOnlyItsHeading) {
    EXPECT_EQ(Dump(Bytes(512, 0xF6), 512, 63), "\r\n  Sector 63 (0x3F) - All F6");
}

TEST(SectorDump, RunsOfUniformSectorsCloseOnTheirLastSector) {
    Bytes data(5 * 512, 0);
    std::fill(data.begin() + 3 * 512, data.end(), 0xFF);  // sectors 3 and 4: another byte
    EXPECT_EQ(Dump(data, 512, 30),
              "\r\n  Sector 30 (0x1E) - All 00 - Sector 32 (0x20)"
              "\r\n  Sector 33 (0x21) - All FF - Sector 34 (0x22)");
}

TEST(SectorDump, ZeroLinesInsideANonUniformSectorFoldIntoMarks) {
    Bytes data(512, 0);
    PutText(data, 0, "AB\x01");
    data[0x20] = 0x7F;
    data[0x2F] = 0xE9;
    std::string text = Dump(data, 512, 0);
    std::string expected =
        "\r\n  Sector 0 (0x0)"
        "\r\n    000  41 42 01 00 00 00 00 00 00 00 00 00 00 00 00 00  AB.............."
        " -0"
        "\r\n    020  7F 00 00 00 00 00 00 00 00 00 00 00 00 00 00 E9  \x7F..............\xE9";
    for (int line = 3; line < 32; ++line) expected += " -0";
    EXPECT_EQ(text, expected);
}

TEST(SectorDump, ChsSuffixWhereTheDiskHasAGeometry) {
    DiskGeometry geometry{1024, 255, 63};
    EXPECT_EQ(SectorName(16065 + 63 + 5, geometry), "Sector 16133 (0x3F05) (1 1 6)");
    EXPECT_EQ(Dump(Bytes(1024, 0), 512, 0, geometry), "\r\n  Sector 0 (0x0) (0 0 1) - All 00 - Sector 1 (0x1) (0 0 2)");
    EXPECT_FALSE(UsableGeometry({100, 0, 63}));
    EXPECT_EQ(SectorName(7, UsableGeometry({0, 16, 0})), "Sector 7 (0x7)");
}

TEST(BootSector, Fat32WithZeroSectorsPerClusterAndAShortLabel) {
    Bytes s(512, 0);
    s[0] = 0xEB; s[1] = 0x58; s[2] = 0x90;
    PutText(s, 3, "MSWIN4.1");
    Put(s, 11, 512, 2); s[13] = 0; Put(s, 14, 32, 2); s[16] = 2; s[21] = 0xF8;
    Put(s, 32, 1048576, 4); Put(s, 36, 1021, 4); Put(s, 44, 2, 4); Put(s, 48, 1, 2); Put(s, 50, 6, 2);
    s[42] = 0; s[43] = 0; s[64] = 0x80; s[66] = 0x29; Put(s, 67, 0xCDEF0123, 4);
    PutText(s, 71, "AB"); s[73] = 0x01;  // "AB", a control byte, then zeros
    PutText(s, 82, "FAT32   ");
    Put(s, 510, 0xAA55, 2);
    std::string out;
    AppendBootSector(out, BootSectorLayout::kFat32, s);
    EXPECT_NE(out.find("    FAT size:                0\r\n    Sectors per track:"), std::string::npos);
    EXPECT_NE(out.find("    FAT size:                1021\r\n"), std::string::npos);
    EXPECT_NE(out.find("    Serial number:           CDEF-0123\r\n"), std::string::npos);
    EXPECT_NE(out.find("    Volume label:            AB.........\r\n"), std::string::npos);
    EXPECT_NE(out.find("    Reserved:                0x00000000 0x00000000 0x00000000\r\n"), std::string::npos);
    // The 32-bit word at 508 shows the signature in its upper half.
    EXPECT_NE(out.find("    Boot signature (0AA55h): 0xAA550000\r\n\r\n\r\n"), std::string::npos);
    EXPECT_NE(out.find("  Clusters from FAT:      130686\r\n"), std::string::npos);  // 512 / 4 * 1021 - 2
    EXPECT_TRUE(out.ends_with("  Clusters from Data:          0\r\n"));
}

TEST(BootSector, NtfsPrintout) {
    Bytes s(512, 0);
    s[0] = 0xEB; s[1] = 0x52; s[2] = 0x90;
    PutText(s, 3, "NTFS    ");
    Put(s, 11, 512, 2); s[13] = 8; s[21] = 0xF8; Put(s, 24, 63, 2); Put(s, 26, 255, 2); Put(s, 28, 2048, 4);
    s[36] = 0x80; Put(s, 40, 409599, 8); Put(s, 48, 4, 8); Put(s, 56, 25599, 8);
    s[64] = 0xF6; s[68] = 1;  // records of 2^10 bytes, index buffers of one cluster
    Put(s, 72, 0x1122334455667788ULL, 8);
    Put(s, 510, 0xAA55, 2);
    std::string out;
    AppendBootSector(out, BootSectorLayout::kNtfs, s);
    EXPECT_NE(out.find("  NTFS bootsector structure:\r\n    Jump code:               0xEB 0x52 0x90\r\n"
                       "    File system name:        NTFS    \r\n"),
              std::string::npos);
    EXPECT_NE(out.find("    Reserved:                0x00 0x0000\r\n    Big total sectors:       409599\r\n"
                       "    MFT cluster:             4\r\n    MFTmirr cluster:         25599\r\n"
                       "    MFT record size:         -10\r\n    Index buffer size:       1\r\n"
                       "    Serial number:           1122-3344-5566-7788\r\n"
                       "    Boot signature (0AA55h): 0xAA55\r\n"),
              std::string::npos);
}

TEST(BootSector, ChoiceByFileSystemThenByTypeByte) {
    EXPECT_EQ(ChooseBootSectorLayout(14, 0x83, 0), BootSectorLayout::kFat16);
    EXPECT_EQ(ChooseBootSectorLayout(13, 0, 0), BootSectorLayout::kFat16);
    EXPECT_EQ(ChooseBootSectorLayout(15, 0x06, 14), BootSectorLayout::kFat32);
    EXPECT_EQ(ChooseBootSectorLayout(10, 0x0C, 15), BootSectorLayout::kNtfs);
    EXPECT_EQ(ChooseBootSectorLayout(4, 0x0C, 15), BootSectorLayout::kNone);
    EXPECT_EQ(ChooseBootSectorLayout(0, 0x0E, 14), BootSectorLayout::kFat16);
    EXPECT_EQ(ChooseBootSectorLayout(0, 0x0C, 15), BootSectorLayout::kFat32);
    EXPECT_EQ(ChooseBootSectorLayout(0, 0x07, 0), BootSectorLayout::kNtfs);
    EXPECT_EQ(ChooseBootSectorLayout(0, 0x83, 0), BootSectorLayout::kNone);
}

TEST(BootSector, ShortSectorPrintsNothing) {
    std::string out;
    AppendBootSector(out, BootSectorLayout::kFat16, Bytes(511, 0));
    EXPECT_EQ(out, "");
}

TEST(PartitionTable, EntriesRecordAndSignature) {
    Bytes s(512, 0);
    Put(s, 0x1A0, 63, 4);
    s[0x1A4] = 0x07; s[0x1A5] = 0x1C;
    s[0x1AC] = 0x80; s[0x1AD] = 0x05;
    s[0x1B6] = 24;
    Put(s, 0x1B8, 0xDEADBEEF, 4);
    // Entry 1: active, CHS 0/32/33 .. 12/223/19, type 0x0C, LBA 2048, 204800 sectors.
    std::size_t e = 0x1BE;
    s[e] = 0x80; s[e + 1] = 32; s[e + 2] = 33; s[e + 3] = 0; s[e + 4] = 0x0C;
    s[e + 5] = 223; s[e + 6] = 19; s[e + 7] = 12; Put(s, e + 8, 2048, 4); Put(s, e + 12, 204800, 4);
    // Entry 2: cylinder bits 8-9 in the sector byte; a boot flag no loader accepts.
    e += 16;
    s[e] = 0x01; s[e + 1] = 254; s[e + 2] = 0xFF; s[e + 3] = 0xFF; s[e + 4] = 0x05;
    Put(s, 0x1FE, 0xAA55, 2);
    std::uint8_t sum = 0;
    for (std::size_t i = 0x1A0; i < 0x1B7; ++i) sum = static_cast<std::uint8_t>(sum + s[i]);
    std::string out;
    AppendPartitionTable(out, s, [](std::uint8_t type) -> std::string {
        return type == 0x0C ? "FAT32 LBA" : type == 0x07 ? "NTFS" : "";
    });
    char checksumLine[64];
    std::snprintf(checksumLine, sizeof checksumLine, "    Extended checksum (0x%02X):   0x00\r\n",
                  static_cast<std::uint8_t>(-sum));
    EXPECT_EQ(out,
              "  Table extended structure\r\n"
              "    Extended boot sector:       63\r\n"
              "    Extended hidden partitions: 07 (NTFS)\r\n"
              "                                1C\r\n"
              "    Extended boot disk:         0x80\r\n"
              "    Extended patch flags:       FAT16(+) MS-DOS7+(-) FAT32(+) OS/2(-)\r\n"
              "    Extended OS/2 patch:        0x00\r\n" +
                  std::string(checksumLine) +
                  "    Extended size (24):         24\r\n"
                  "    NT signature:               0xDEADBEEF\r\n"
                  "    Extended serial number:     0x0000\r\n"
                  "  i f    Start C   H  S      End C   H  S      Start       Size Type\r\n"
                  "  - - ---------- --- -- ---------- --- -- ---------- ---------- ----\r\n"
                  "  1 A          0  32 33         12 223 19       2048     204800 0C (FAT32 LBA)\r\n"
                  "  2 ?       1023 254 63          0   0  0          0          0 05\r\n"
                  "  3 -          0   0  0          0   0  0          0          0 00\r\n"
                  "  4 -          0   0  0          0   0  0          0          0 00\r\n"
                  "    Boot sign (0x0AA55):        0xAA55\r\n");
}

TEST(BiosParameters, TablesAndExtensions) {
    Bytes table(16, 0);
    Put(table, 0, 1024, 2); table[2] = 255; Put(table, 5, 0xFFFF, 2); table[8] = 0xC0; table[14] = 63;
    Bytes parameters(26, 0);
    Put(parameters, 0, 26, 2); Put(parameters, 2, 0x0002 | 0x0004, 2);
    Put(parameters, 4, 16383, 4); Put(parameters, 8, 16, 4); Put(parameters, 12, 63, 4);
    Put(parameters, 16, 488397168, 8); Put(parameters, 24, 512, 2);
    std::string out;
    AppendFixedDiskTable(out, table);
    AppendBiosExtensions(out, 0x30, 0x0007, parameters);
    EXPECT_NE(out.find("  BIOS HDPT properties:\r\n    Geometry:              1024 255 63\r\n"
                       "    Phys. geometry:        1024 255 63\r\n"),
              std::string::npos);
    EXPECT_NE(out.find("    Precompensation cyl.:  65535\r\n"), std::string::npos);
    EXPECT_NE(out.find("    ECC burst lenght:      0\r\n"), std::string::npos);
    EXPECT_NE(out.find("    Defect aap present:    0\r\n    Disabled ECC retry:    1\r\n"
                       "    Disabled access retry: 1\r\n"),
              std::string::npos);
    EXPECT_NE(out.find("    Extension version:   3.0\r\n    Functions supported: EDD Removable Ext.\r\n"),
              std::string::npos);
    EXPECT_NE(out.find("    CHS information:     Valid\r\n    Removable drive:     1\r\n"), std::string::npos);
    EXPECT_NE(out.find("    Geometry:            16383 16 63\r\n    Total sectors:       488397168\r\n"
                       "    Sector size:         512\r\n"),
              std::string::npos);
}

}  // namespace
}  // namespace DaApi
