// The disk library's decoders over small byte vectors built from the published layouts.
#include <gtest/gtest.h>

#include "core/disk/block_device.h"
#include "core/disk/disk_errors.h"
#include "core/disk/fat.h"
#include "core/disk/fs_probe.h"
#include "core/disk/gpt.h"
#include "core/disk/layout.h"
#include "core/disk/mbr.h"
#include "core/disk/memory_disk.h"
#include "core/disk/partition_types.h"
#include "fuzz/disk/sparse_disk.h"

namespace {

using namespace Disk;

void PutLe(std::vector<std::uint8_t>& bytes, std::size_t offset, std::uint64_t value, int width) {
    for (int i = 0; i < width; ++i) bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// A partition-table entry at `slot` of the table in `sector` (offset 446, 16 bytes each).
void PutEntry(std::vector<std::uint8_t>& bytes, std::size_t sectorOffset, int slot, std::uint8_t type,
              std::uint32_t first, std::uint32_t count, std::uint8_t status = 0) {
    const std::size_t at = sectorOffset + 446 + 16 * slot;
    bytes[at] = status;
    bytes[at + 4] = type;
    PutLe(bytes, at + 8, first, 4);
    PutLe(bytes, at + 12, count, 4);
    bytes[sectorOffset + 510] = 0x55;
    bytes[sectorOffset + 511] = 0xAA;
}

// Entries and signatures are the fixture tests' (against sfdisk); a sector cut short holds no MBR.
TEST(DiskDecoders, MbrNeedsAWholeSector) {
    EXPECT_FALSE(DecodeMbr(std::vector<std::uint8_t>(511)));
}

// A GPT header at `lba` following UEFI 2.10 table 5-5, with a correct CRC unless told otherwise.
std::vector<std::uint8_t> GptHeaderSector(std::uint64_t lba, std::uint32_t headerSize = 92, std::uint32_t entrySize = 128,
                                          std::uint32_t entryCount = 128) {
    std::vector<std::uint8_t> sector(512);
    std::copy_n("EFI PART", 8, sector.begin());
    PutLe(sector, 8, 0x00010000, 4);
    PutLe(sector, 12, headerSize, 4);
    PutLe(sector, 24, lba, 8);
    PutLe(sector, 32, 999, 8);
    PutLe(sector, 40, 34, 8);
    PutLe(sector, 48, 966, 8);
    PutLe(sector, 72, 2, 8);
    PutLe(sector, 80, entryCount, 4);
    PutLe(sector, 84, entrySize, 4);
    const std::uint32_t crc = Crc32(std::span(sector).first(std::min<std::size_t>(headerSize, 512)));
    PutLe(sector, 16, crc, 4);
    return sector;
}

TEST(DiskDecoders, GptHeaderRules) {
    std::string why;
    EXPECT_TRUE(DecodeGptHeader(GptHeaderSector(1), 1, 1000, why)) << why;
    auto damaged = GptHeaderSector(1);
    damaged[60] ^= 1;
    EXPECT_FALSE(DecodeGptHeader(damaged, 1, 1000, why));
    EXPECT_NE(why.find("CRC"), std::string::npos);
    EXPECT_FALSE(DecodeGptHeader(GptHeaderSector(1), 999, 1000, why));  // MyLBA is not where it was read
    EXPECT_NE(why.find("MyLBA"), std::string::npos);
    EXPECT_FALSE(DecodeGptHeader(GptHeaderSector(1, 91), 1, 1000, why));
    EXPECT_FALSE(DecodeGptHeader(GptHeaderSector(1, 513), 1, 1000, why));
    EXPECT_TRUE(DecodeGptHeader(GptHeaderSector(1, 512), 1, 1000, why)) << why;
    EXPECT_FALSE(DecodeGptHeader(GptHeaderSector(1, 92, 384), 1, 1000, why));  // 128 x 3
    EXPECT_TRUE(DecodeGptHeader(GptHeaderSector(1, 92, 256), 1, 1000, why)) << why;
    EXPECT_FALSE(DecodeGptHeader(GptHeaderSector(1, 92, 128, 0x100000), 1, 100000, why));  // 128 MiB of entries
    EXPECT_FALSE(DecodeGptHeader(GptHeaderSector(1), 1, 500, why));  // last usable LBA 966 past the disk
}

// Chains that follow their links and one that loops are the fixture tests' (mbr.img, ebr-loop.img).
TEST(DiskDecoders, EbrChainStopsAtLinksOutsideAndUnsignedTables) {
    std::vector<std::uint8_t> bytes(64 * 512);
    // The EBR at `sector`: a logical partition right after it, and a link to `next` (relative to the
    // extended partition's start at sector 1).
    auto ebr = [&](std::uint32_t sector, std::uint32_t next) {
        PutEntry(bytes, sector * 512, 0, 0x83, 1, 2);
        PutEntry(bytes, sector * 512, 1, 0x05, next, 4);
    };
    auto walk = [&](std::uint64_t count) {
        MemoryDisk disk(bytes, 512);
        return WalkEbrChain(disk, 1, count);
    };
    ebr(1, 4);
    ebr(5, 40);  // past an extended partition of 20 sectors
    EbrChain chain = walk(20);
    ASSERT_EQ(chain.links.size(), 2u);
    EXPECT_EQ(chain.links[1].issues.at(0).problem, Problem::kExtendedOutside);

    ebr(5, 8);  // to a sector without a signature
    chain = walk(63);
    ASSERT_EQ(chain.links.size(), 3u);
    EXPECT_FALSE(chain.links[2].hasSignature);
    EXPECT_EQ(chain.links[2].issues.at(0).problem, Problem::kNoTableSignature);

    ebr(5, 70);  // past the disk (but inside the extended partition's claimed size)
    chain = walk(100);
    ASSERT_EQ(chain.links.size(), 2u);
    EXPECT_EQ(chain.issues.at(0).problem, Problem::kTableUnreadable);
}

TEST(DiskLayoutTest, OverlapsAndGapsAreMarked) {
    std::vector<std::uint8_t> bytes(100 * 512);
    PutEntry(bytes, 0, 0, 0x83, 10, 20);
    PutEntry(bytes, 0, 1, 0x83, 25, 10);   // overlaps the first
    PutEntry(bytes, 0, 2, 0x0C, 90, 20);   // past the end
    MemoryDisk disk(bytes, 512);
    const DiskLayout layout = ReadLayout(disk);
    ASSERT_EQ(layout.scheme, Scheme::kMbr);
    std::vector<ObjectKind> kinds;
    for (const auto& object : layout.objects) kinds.push_back(object.kind);
    EXPECT_EQ(kinds, (std::vector<ObjectKind>{ObjectKind::kMbr, ObjectKind::kUnallocated, ObjectKind::kPartition,
                                              ObjectKind::kPartition, ObjectKind::kUnallocated, ObjectKind::kPartition}));
    EXPECT_EQ(layout.objects[1].count, 9u);
    EXPECT_TRUE(layout.objects[2].structureErrors & kStructureOverlapping);
    EXPECT_TRUE(layout.objects[3].structureErrors & kStructureOverlapping);
    EXPECT_EQ(layout.objects[4].first, 35u);
    EXPECT_EQ(layout.objects[4].count, 55u);
    EXPECT_TRUE(layout.objects[5].structureErrors & kStructureReadError);
}

// A protective MBR without a valid GPT, and a sector too small to hold an MBR.
TEST(DiskLayoutTest, SchemesThatCannotBeReadShowAsTheirState) {
    std::vector<std::uint8_t> bytes(100 * 512);
    PutEntry(bytes, 0, 0, kGptProtectiveType, 1, 99);
    for (const std::uint32_t sectorSize : {512u, 256u}) {
        MemoryDisk disk(bytes, sectorSize);
        const DiskLayout layout = ReadLayout(disk);
        EXPECT_EQ(layout.scheme, sectorSize == 512 ? Scheme::kGpt : Scheme::kNone);
        EXPECT_EQ(layout.state, sectorSize == 512 ? SchemeState::kCorrupted : SchemeState::kReadError);
        EXPECT_EQ(layout.issues.at(0).problem,
                  sectorSize == 512 ? Problem::kGptNoValidHeader : Problem::kUnsupportedSectorSize);
    }
}

// A FAT boot sector for `totalSectors` of 512 bytes with one sector per cluster and 2 FATs.
std::vector<std::uint8_t> FatBootSector(std::uint32_t totalSectors, std::uint32_t fatSectors, bool fat32,
                                        std::uint8_t sectorsPerCluster = 1) {
    std::vector<std::uint8_t> sector(512);
    sector[0] = 0xEB;
    PutLe(sector, 11, 512, 2);
    sector[13] = sectorsPerCluster;
    PutLe(sector, 14, fat32 ? 32 : 1, 2);
    sector[16] = 2;
    PutLe(sector, 17, fat32 ? 0 : 512, 2);
    sector[21] = 0xF8;
    if (fat32) {
        PutLe(sector, 36, fatSectors, 4);
        PutLe(sector, 44, 2, 4);
        std::copy_n("FAT32   ", 8, sector.begin() + 82);
    } else {
        PutLe(sector, 22, fatSectors, 2);
        std::copy_n("FAT16   ", 8, sector.begin() + 54);
    }
    PutLe(sector, 32, totalSectors, 4);
    return sector;
}

TEST(DiskDecoders, FatTypeFollowsTheClusterCount) {
    std::string why;
    bool claimed = false;
    // Data sectors = total - reserved(1) - 2 x FAT(16) - root(32): 4084 clusters is FAT12, 4085 FAT16.
    EXPECT_EQ(DecodeFatBootSector(FatBootSector(4084 + 65, 16, false), why, claimed)->fatBits, 12u);
    EXPECT_EQ(DecodeFatBootSector(FatBootSector(4085 + 65, 16, false), why, claimed)->fatBits, 16u);
    // With 256 sectors per FAT: 65524 clusters is FAT16, 65525 FAT32 (which needs FAT32's fields).
    EXPECT_EQ(DecodeFatBootSector(FatBootSector(65524 + 545, 256, false), why, claimed)->fatBits, 16u);
    EXPECT_EQ(DecodeFatBootSector(FatBootSector(65525 + 32 + 1024, 512, true), why, claimed)->fatBits, 32u);
    const auto zero = DecodeFatBootSector(FatBootSector(80000, 640, true, 0), why, claimed);
    EXPECT_FALSE(zero);
    EXPECT_TRUE(claimed);
    EXPECT_EQ(why, "sectors per cluster 0");
    auto noJump = FatBootSector(80000, 640, true);
    noJump[0] = 0;
    std::fill_n(noJump.begin() + 82, 8, 0);
    EXPECT_FALSE(DecodeFatBootSector(noJump, why, claimed));
    EXPECT_FALSE(claimed);
}

// A FAT32 volume whose FAT spans several of the reader's 1 MiB chunks, with clusters in use far into it.
TEST(DiskDecoders, FatEntriesAreCountedAcrossChunks) {
    constexpr std::uint64_t kTotal = 400000, kReserved = 32, kFatSectors = 3100;
    constexpr std::uint64_t kClusters = kTotal - kReserved - 2 * kFatSectors;
    SparseDisk disk(kTotal);
    const auto boot = FatBootSector(kTotal, kFatSectors, true);
    for (std::size_t i = 0; i < boot.size(); ++i) disk.Put(i, boot[i], 1);
    disk.Put(510, 0xAA55, 2);
    for (std::uint64_t copy = 0; copy < 2; ++copy) {
        const std::uint64_t fat = (kReserved + copy * kFatSectors) * 512;
        disk.Put(fat, 0x0FFFFFF8, 4);
        disk.Put(fat + 4, 0x0FFFFFFF, 4);
        disk.Put(fat + 8, 0x0FFFFFFF, 4);  // the root directory's one cluster
        for (std::uint64_t cluster = 300000; cluster < 300010; ++cluster) disk.Put(fat + 4 * cluster, 0x0FFFFFFF, 4);
    }
    VolumeReader volume(disk, 0, kTotal);
    const ProbeResult probe = ProbeFileSystem(volume);
    ASSERT_EQ(probe.outcome, ProbeOutcome::kFound) << probe.failure;
    EXPECT_EQ(probe.info.blockCount, kClusters);
    EXPECT_EQ(probe.info.freeBlocks, kClusters - 11);
    // No directory entry claims the ten clusters: they are lost.
    CheckResult check;
    ASSERT_TRUE(CheckFileSystem(volume, probe.info, check).Succeeded());
    EXPECT_EQ(check.warnings, kWarnLostClusters);
    // A link past the last cluster, far into the FAT, is found too.
    disk.Put(kReserved * 512 + 4 * 300000, 0x0FFFFFF0 - 1, 4);
    disk.Put((kReserved + kFatSectors) * 512 + 4 * 300000, 0x0FFFFFF0 - 1, 4);
    ASSERT_TRUE(CheckFileSystem(volume, ProbeFileSystem(volume).info, check).Succeeded());
    EXPECT_EQ(check.warnings, kWarnFatCorrupted | kWarnLostClusters);
}

TEST(DiskDecoders, VolumeReaderStaysInsideItsRegionAndTheDisk) {
    MemoryDisk disk(std::vector<std::uint8_t>(10 * 512, 0xAB), 512);
    VolumeReader inside(disk, 2, 4);
    EXPECT_EQ(inside.Size(), 4u * 512);
    std::vector<std::uint8_t> data;
    EXPECT_TRUE(inside.Read(4 * 512 - 3, 3, data).Succeeded());
    EXPECT_EQ(data.size(), 3u);
    EXPECT_TRUE(inside.Read(4 * 512 - 3, 4, data).Failed());
    EXPECT_TRUE(inside.Read(~0ull - 1, 4, data).Failed());
    VolumeReader clipped(disk, 8, 100);
    EXPECT_EQ(clipped.Size(), 2u * 512);
    VolumeReader outside(disk, 20, 5);
    EXPECT_EQ(outside.Size(), 0u);
    EXPECT_EQ(ProbeFileSystem(outside).outcome, ProbeOutcome::kNotThisFormat);
}

// The type-byte and file-system tables' rows are the golden texts' and the DA-API tests' business.
TEST(DiskDecoders, TypeNamesFitTheirColumnAndLabelsAreTrimmed) {
    for (int type = 0; type < 256; ++type) EXPECT_LE(PartitionTypeName(static_cast<std::uint8_t>(type)).size(), 12u);
    EXPECT_EQ(LabelFromBytes(std::vector<std::uint8_t>{'A', 0xE9, ' ', ' '}), u"A\u00E9");
    EXPECT_EQ(LabelFromUtf16Le(std::vector<std::uint8_t>{'x', 0, 0xAC, 0x20, 0, 0, 'y', 0}), u"x\u20AC");
}

TEST(DiskDecoders, PathListsSplitAtTheSeparator) {
    EXPECT_EQ(SplitPathList(std::string_view("/a.img::/b c.img:"), ':'),
              (std::vector<std::filesystem::path>{"/a.img", "/b c.img"}));
}

}  // namespace
