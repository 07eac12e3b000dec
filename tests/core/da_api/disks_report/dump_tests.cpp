// The sector dump, boot-sector and partition-table printouts where the golden texts cannot reach them: byte
// vectors laid out by hand after the published FAT and MBR layouts, and the BIOS tables no image has.
#include <gtest/gtest.h>

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

// The dumps' layout (uniform runs, folded zero lines, CHS suffixes) is the golden texts' business; here only
// geometries that cannot give a CHS address, which no golden disk has.
TEST(SectorDump, NoChsSuffixWithoutHeadsOrSectorsPerTrack) {
    EXPECT_EQ(SectorName(7, UsableGeometry({100, 0, 63})), "Sector 7 (0x7)");
    EXPECT_EQ(SectorName(7, UsableGeometry({100, 16, 0})), "Sector 7 (0x7)");
}

// The fixture golden text shows the other choices: by file system, and by type byte for FAT32 and NTFS.
TEST(BootSector, ChoiceOfHpfsAndOfFat16ByTypeByte) {
    EXPECT_EQ(ChooseBootSectorLayout(13, 0, 0), BootSectorLayout::kFat16);
    EXPECT_EQ(ChooseBootSectorLayout(0, 0x0E, 14), BootSectorLayout::kFat16);
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
    std::string out;
    AppendPartitionTable(out, s, [](std::uint8_t type) -> std::string {
        return type == 0x0C ? "FAT32 LBA" : type == 0x07 ? "NTFS" : "";
    });
    EXPECT_EQ(out,
              "  Table extended structure\r\n"
              "    Extended boot sector:       63\r\n"
              "    Extended hidden partitions: 07 (NTFS)\r\n"
              "                                1C\r\n"
              "    Extended boot disk:         0x80\r\n"
              "    Extended patch flags:       FAT16(+) MS-DOS7+(-) FAT32(+) OS/2(-)\r\n"
              "    Extended OS/2 patch:        0x00\r\n"
              "    Extended checksum (0x01):   0x00\r\n"
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
