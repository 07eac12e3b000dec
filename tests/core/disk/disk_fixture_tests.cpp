// The disk library over images made by the real tools, cross-checked against the tools' own reports.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "core/disk/block_device.h"
#include "core/disk/fs_probe.h"
#include "core/disk/layout.h"
#include "core/disk/memory_disk.h"
#include "tests/core/disk/disk_fixtures.h"

namespace {

using namespace Disk;
using TestSupport::FixtureReport;
using TestSupport::NumberAfter;
using TestSupport::NumberBefore;
using TestSupport::TextAfter;

std::u16string U16(std::string_view text) { return std::u16string(text.begin(), text.end()); }

std::vector<const DiskObject*> OfKind(const DiskLayout& layout, ObjectKind kind) {
    std::vector<const DiskObject*> found;
    for (const auto& object : layout.objects)
        if (object.kind == kind) found.push_back(&object);
    return found;
}

// The partitions' numbers, starts and sizes against "sfdisk --json".
void ExpectAsSfdisk(const std::vector<const DiskObject*>& partitions,
                    const std::vector<TestSupport::SfdiskPartition>& expected) {
    ASSERT_EQ(partitions.size(), expected.size());
    for (std::size_t i = 0; i < partitions.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(partitions[i]->number, expected[i].number);
        EXPECT_EQ(partitions[i]->first, expected[i].start);
        EXPECT_EQ(partitions[i]->count, expected[i].size);
    }
}

class DiskFixtureTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        const auto folder = TestSupport::DiskFixtures(why);
        if (!folder) GTEST_SKIP() << why;
        folder_ = *folder;
    }

    std::unique_ptr<BlockDevice> Open(std::string_view name) {
        auto disks = MakeImageSource({folder_ / std::string(name)})->Enumerate();
        return std::move(disks.at(0));
    }

    ProbeResult ProbeAt(SectorReader& disk, std::uint64_t first, std::uint64_t count) {
        VolumeReader volume(disk, first, count);
        return ProbeFileSystem(volume);
    }

    std::string Report(std::string_view name) { return FixtureReport(folder_, name); }

    // Every object follows the previous one without a gap, and together they cover the disk.
    static void ExpectContiguous(const DiskLayout& layout, std::uint64_t total) {
        std::uint64_t cursor = 0;
        for (const auto& object : layout.objects) {
            EXPECT_EQ(object.first, cursor);
            cursor = object.End();
        }
        EXPECT_EQ(cursor, total);
    }

    std::filesystem::path folder_;
};

TEST_F(DiskFixtureTest, MbrLayoutMatchesSfdisk) {
    auto disk = Open("mbr.img");
    const DiskLayout layout = ReadLayout(*disk);
    ASSERT_EQ(layout.scheme, Scheme::kMbr);
    EXPECT_EQ(layout.state, SchemeState::kOk);
    EXPECT_EQ(layout.mbrSignature, 0x5eed0001u);

    const auto expected = TestSupport::SfdiskPartitions(Report("mbr.sfdisk.json"));
    ASSERT_EQ(expected.size(), 5u);
    const auto partitions = OfKind(layout, ObjectKind::kPartition);
    std::vector<TestSupport::SfdiskPartition> notExtended;
    std::copy_if(expected.begin(), expected.end(), std::back_inserter(notExtended), [](const auto& p) { return p.type != "5"; });
    ExpectAsSfdisk(partitions, notExtended);
    for (std::size_t i = 0; i < notExtended.size(); ++i) {
        EXPECT_EQ(partitions[i]->typeByte, std::stoul(notExtended[i].type, nullptr, 16));
        EXPECT_EQ(partitions[i]->active, notExtended[i].bootable);
    }
    // One extended boot record per logical partition, the first at the extended partition's start.
    const auto tables = OfKind(layout, ObjectKind::kExtendedTable);
    ASSERT_EQ(tables.size(), 2u);
    EXPECT_EQ(tables[0]->first, expected[2].start);
    EXPECT_LT(tables[1]->first, partitions[3]->first);
    EXPECT_EQ(OfKind(layout, ObjectKind::kMbr).size(), 1u);
    for (const auto& object : layout.objects) EXPECT_TRUE(object.issues.empty()) << object.issues[0].detail;
    ExpectContiguous(layout, disk->SectorCount());
}

TEST_F(DiskFixtureTest, GptLayoutMatchesSfdisk) {
    auto disk = Open("gpt.img");
    const DiskLayout layout = ReadLayout(*disk);
    ASSERT_EQ(layout.scheme, Scheme::kGpt);
    EXPECT_TRUE(layout.gptAlsoMbr);
    const std::string report = Report("gpt.sfdisk.json");
    ASSERT_TRUE(layout.diskGuid);
    EXPECT_EQ(layout.diskGuid->ToString(), TextAfter(report, "\"id\": \"")->substr(0, 36));

    const auto expected = TestSupport::SfdiskPartitions(report);
    const auto partitions = OfKind(layout, ObjectKind::kPartition);
    ASSERT_EQ(expected.size(), 3u);
    ExpectAsSfdisk(partitions, expected);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(partitions[i]->typeGuid->ToString(), expected[i].type);
        EXPECT_EQ(partitions[i]->uniqueGuid->ToString(), expected[i].uuid);
    }

    const auto metadata = OfKind(layout, ObjectKind::kMetadata);
    ASSERT_EQ(metadata.size(), 2u);
    EXPECT_EQ(metadata[0]->metadata, MetadataKind::kGptPrimary);
    EXPECT_EQ(metadata[0]->first, 1u);
    EXPECT_EQ(metadata[0]->End(), *NumberAfter(report, "\"firstlba\":"));
    EXPECT_EQ(metadata[1]->metadata, MetadataKind::kGptBackup);
    EXPECT_EQ(metadata[1]->first, *NumberAfter(report, "\"lastlba\":") + 1);
    EXPECT_EQ(metadata[1]->End(), disk->SectorCount());
    for (const auto& object : layout.objects) EXPECT_TRUE(object.issues.empty()) << object.issues[0].detail;
    ExpectContiguous(layout, disk->SectorCount());
}

struct FatCase {
    const char* image;
    std::uint64_t first;
    std::uint64_t count;  // 0: the whole disk
    const char* report;
    FsType type;
    const char* label;
};

TEST_F(DiskFixtureTest, FatFileSystemsMatchFsckFat) {
    const FatCase cases[] = {
        {"mbr.img", 2048, 32768, "mbr.p1.fsck.txt", FsType::kFat16, "MBRFAT16"},
        {"gpt.img", 2048, 81920, "gpt.p1.fsck.txt", FsType::kFat32, "ESP"},
        {"floppy.img", 0, 0, "floppy.fsck.txt", FsType::kFat16, "FLOPPY"},
        {"gpt4k.img", 1280, 1024, "gpt4k.p2.fsck.txt", FsType::kFat16, "FAT4K"},
        // FAT32 by its zero 16-bit FAT size, though it has fewer than 65,525 clusters.
        {"fat32-4k.img", 0, 0, "fat32-4k.fsck.txt", FsType::kFat32, "ESP4K"},
    };
    for (const FatCase& fat : cases) {
        SCOPED_TRACE(fat.report);
        auto disk = Open(fat.image);
        const ProbeResult result = ProbeAt(*disk, fat.first, fat.count ? fat.count : disk->SectorCount());
        ASSERT_EQ(result.outcome, ProbeOutcome::kFound) << result.failure;
        const FileSystemInfo& info = result.info;
        const std::string report = Report(fat.report);
        const std::uint64_t bytesPerSector = *NumberBefore(report, "bytes per logical sector");
        EXPECT_EQ(info.type, fat.type);
        EXPECT_EQ(info.fatCount, *NumberBefore(report, "FATs,"));  // "2 FATs, 16 bit entries"
        EXPECT_EQ(info.fatBits, *NumberAfter(report, "FATs,"));
        EXPECT_EQ(info.blockBytes, *NumberBefore(report, "bytes per cluster"));
        EXPECT_EQ(info.blockCount, *NumberBefore(report, "data clusters"));
        EXPECT_EQ(info.fatBytes, *NumberBefore(report, "bytes per FAT"));
        EXPECT_EQ(info.reservedBytes / bytesPerSector, *NumberBefore(report, "reserved sector"));
        EXPECT_EQ(info.sizeBytes / bytesPerSector, *NumberBefore(report, "sectors total"));
        // "<name>: 1 files, 1/80628 clusters": used and total clusters.
        const std::string summary = report.substr(report.rfind(": ") + 2);
        const std::uint64_t used = *NumberAfter(summary, "files,");
        ASSERT_TRUE(info.freeBlocks);
        EXPECT_EQ(*info.freeBlocks, info.blockCount - used);
        if (info.fatBits != 32) {
            EXPECT_EQ(info.rootEntries, *NumberBefore(report, "root directory entries"));
        }
        EXPECT_EQ(info.fatBits == 12, (info.options & kOptFat12) != 0);
        EXPECT_EQ(info.label, U16(fat.label));
        // mkfs.vfat --invariant fixes the serial at 1234-ABCD, stored little-endian.
        EXPECT_EQ(info.serial, (std::vector<std::uint8_t>{0xCD, 0xAB, 0x34, 0x12}));
        EXPECT_EQ(info.usedRootEntries, 1u);  // the volume label entry
    }
}

TEST_F(DiskFixtureTest, NtfsMatchesNtfsinfo) {
    struct Case {
        const char* image;
        std::uint64_t first, count;
        const char* report;
        std::vector<std::uint8_t> serial;
    };
    const Case cases[] = {
        {"mbr.img", 34816, 24576, "mbr.p2.ntfsinfo.txt", {0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01}},
        {"gpt.img", 92160, 32768, "gpt.p3.ntfsinfo.txt", {0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE}},
    };
    for (const Case& ntfs : cases) {
        SCOPED_TRACE(ntfs.report);
        auto disk = Open(ntfs.image);
        const ProbeResult result = ProbeAt(*disk, ntfs.first, ntfs.count);
        ASSERT_EQ(result.outcome, ProbeOutcome::kFound) << result.failure;
        const std::string report = Report(ntfs.report);
        EXPECT_EQ(result.info.type, FsType::kNtfs);
        EXPECT_EQ(result.info.blockBytes, *NumberAfter(report, "Cluster Size:"));
        EXPECT_EQ(result.info.blockCount, *NumberAfter(report, "Volume Size in Clusters:"));
        ASSERT_TRUE(result.info.freeBlocks);
        EXPECT_EQ(*result.info.freeBlocks, *NumberAfter(report, "Free Clusters:"));
        EXPECT_EQ(result.info.label, U16(*TextAfter(report, "Volume Name:")));
        EXPECT_EQ(result.info.serial, ntfs.serial);
    }
}

TEST_F(DiskFixtureTest, ExtMatchesDumpe2fs) {
    struct Case {
        const char* image;
        std::uint64_t first, count;
        const char* report;
    };
    // dumpe2fs's feature names and the option bits they set.
    const std::map<std::string, std::uint32_t> features = {
        {"sparse_super", kOptExt2SparseSuper}, {"filetype", kOptExt2Filetype},     {"large_file", kOptExt2LargeFile},
        {"ext_attr", kOptExt2ExtAttr},         {"dir_prealloc", kOptExt2DirPrealloc}, {"dir_index", kOptExt2DirIndex},
        {"meta_bg", kOptExt2MetaBg},           {"resize_inode", kOptExt2ResizeInode}, {"huge_file", kOptExt4HugeFile},
        {"uninit_bg", kOptExt4GdtCsum},        {"dir_nlink", kOptExt4DirNlink},     {"extent", kOptExt4Extents},
        {"64bit", kOptExt4_64Bit},             {"flex_bg", kOptExt4FlexBg},         {"extra_isize", kOptExt4ExtraIsize},
        {"metadata_csum", kOptExt4MetadataCsum},
    };
    const Case cases[] = {
        {"mbr.img", 61440, 24576, "mbr.p5.dumpe2fs.txt"},
        {"gpt4k.img", 256, 1024, "gpt4k.p1.dumpe2fs.txt"},
    };
    for (const Case& ext : cases) {
        SCOPED_TRACE(ext.report);
        auto disk = Open(ext.image);
        const ProbeResult result = ProbeAt(*disk, ext.first, ext.count);
        ASSERT_EQ(result.outcome, ProbeOutcome::kFound) << result.failure;
        const FileSystemInfo& info = result.info;
        const std::string report = Report(ext.report);
        EXPECT_EQ(info.type, FsType::kExt4);
        EXPECT_EQ(info.blockBytes, *NumberAfter(report, "Block size:"));
        EXPECT_EQ(info.blockCount, *NumberAfter(report, "Block count:"));
        EXPECT_EQ(*info.freeBlocks, *NumberAfter(report, "Free blocks:"));
        EXPECT_EQ(info.inodeCount, *NumberAfter(report, "Inode count:"));
        EXPECT_EQ(info.freeInodes, *NumberAfter(report, "Free inodes:"));
        EXPECT_EQ(info.inodeSize, *NumberAfter(report, "Inode size:"));
        EXPECT_EQ(info.reservedBytes / info.blockBytes, *NumberAfter(report, "First block:"));
        EXPECT_EQ(info.journalBlocks, NumberAfter(report, "Total journal blocks:").value_or(0));
        EXPECT_EQ(info.label, U16(*TextAfter(report, "Filesystem volume name:")));
        EXPECT_EQ(info.serial, (std::vector<std::uint8_t>{0x11, 0x11, 0x11, 0x11, 0x22, 0x22, 0x33, 0x33, 0x44, 0x44,
                                                          0x55, 0x55, 0x55, 0x55, 0x55, 0x55}));
        std::uint32_t expected = 0;
        std::istringstream names(*TextAfter(report, "Filesystem features:"));
        for (std::string name; names >> name;)
            if (const auto bit = features.find(name); bit != features.end()) expected |= bit->second;
        EXPECT_EQ(info.options, expected);
    }
}

TEST_F(DiskFixtureTest, ExfatMatchesDumpExfat) {
    auto disk = Open("mbr.img");
    const ProbeResult result = ProbeAt(*disk, 88064, 16384);
    ASSERT_EQ(result.outcome, ProbeOutcome::kFound) << result.failure;
    const std::string report = Report("mbr.p6.dumpexfat.txt");
    EXPECT_EQ(result.info.type, FsType::kExfat);
    EXPECT_EQ(result.info.blockBytes, *NumberAfter(report, "Cluster size:"));
    EXPECT_EQ(result.info.blockCount, *NumberAfter(report, "Total Clusters:"));
    ASSERT_TRUE(result.info.freeBlocks);
    EXPECT_EQ(*result.info.freeBlocks, *NumberAfter(report, "Free Clusters:"));
    EXPECT_EQ(result.info.label, U16(*TextAfter(report, "Volume label:")));
    EXPECT_EQ(result.info.reservedBytes / 512, *NumberAfter(report, "FAT Offset(sector offset):"));
    EXPECT_EQ(result.info.serial, (std::vector<std::uint8_t>{0x0F, 0x0E, 0xED, 0x5E}));
}

// The sector size comes from where the GPT header sits, or, on an MBR disk, from where the partitions'
// file systems are found.
TEST_F(DiskFixtureTest, FourKSectorImagesAreReadInTheirOwnSectors) {
    for (const std::string name : {"gpt4k", "mbr4k"}) {
        SCOPED_TRACE(name);
        auto disk = Open(name + ".img");
        ASSERT_EQ(disk->SectorSize(), 4096u);
        const std::string report = Report(name + ".fdisk.txt");
        EXPECT_EQ(disk->SectorCount(), *NumberBefore(report, "sectors\n"));
        const DiskLayout layout = ReadLayout(*disk);
        ASSERT_EQ(layout.scheme, name == "gpt4k" ? Scheme::kGpt : Scheme::kMbr);
        const auto partitions = OfKind(layout, ObjectKind::kPartition);
        ASSERT_EQ(partitions.size(), 2u);
        EXPECT_EQ(partitions[0]->first, *NumberAfter(report, name + ".img1"));
        EXPECT_EQ(partitions[1]->first, *NumberAfter(report, name + ".img2"));
        EXPECT_EQ(partitions[0]->count, 1024u);
        EXPECT_EQ(ProbeAt(*disk, partitions[0]->first, partitions[0]->count).info.type, FsType::kExt4);
        EXPECT_EQ(ProbeAt(*disk, partitions[1]->first, partitions[1]->count).info.type, FsType::kFat16);
        ExpectContiguous(layout, disk->SectorCount());
    }
}

TEST_F(DiskFixtureTest, WholeDiskFileSystemsHaveNoPartitionTable) {
    for (const char* name : {"floppy.img", "swap.img"}) {
        SCOPED_TRACE(name);
        auto disk = Open(name);
        const DiskLayout layout = ReadLayout(*disk);
        EXPECT_EQ(layout.scheme, Scheme::kRaw);
        ASSERT_EQ(layout.objects.size(), 1u);
        EXPECT_EQ(layout.objects[0].kind, ObjectKind::kPartition);
        EXPECT_EQ(layout.objects[0].count, disk->SectorCount());
    }
}

TEST_F(DiskFixtureTest, SwapMatchesBlkid) {
    auto disk = Open("swap.img");
    const ProbeResult result = ProbeAt(*disk, 0, disk->SectorCount());
    ASSERT_EQ(result.outcome, ProbeOutcome::kFound) << result.failure;
    const std::string report = Report("swap.blkid.txt");
    EXPECT_EQ(*TextAfter(report, "TYPE="), "swap");
    EXPECT_EQ(result.info.type, FsType::kLinuxSwap);
    EXPECT_EQ(result.info.label, U16(*TextAfter(report, "LABEL=")));
    // The swap header keeps the UUID in its text order, so its bytes read as blkid prints them.
    std::string uuid;
    for (const std::uint8_t byte : result.info.serial) {
        uuid += "0123456789abcdef"[byte >> 4];
        uuid += "0123456789abcdef"[byte & 15];
    }
    std::string expected = *TextAfter(report, "UUID=");
    std::erase(expected, '-');
    EXPECT_EQ(uuid, expected);
    EXPECT_EQ(result.info.sizeBytes, disk->SectorCount() * 512);
}

// What each damage shows is in the DA-API's dump and the golden report of the same images; here the
// partitions that sfdisk, too, reads from them.
TEST_F(DiskFixtureTest, DamagedImagesKeepThePartitionsSfdiskReads) {
    {
        SCOPED_TRACE("primary GPT header with a wrong CRC: the backup is used");
        auto disk = Open("gpt-badcrc.img");
        const DiskLayout layout = ReadLayout(*disk);
        ASSERT_EQ(layout.scheme, Scheme::kGpt);
        EXPECT_EQ(layout.state, SchemeState::kOk);
        ExpectAsSfdisk(OfKind(layout, ObjectKind::kPartition), TestSupport::SfdiskPartitions(Report("gpt-badcrc.sfdisk.json")));
    }
    {
        SCOPED_TRACE("partitions past the end of the disk keep the table's sizes");
        auto disk = Open("past-end.img");
        ExpectAsSfdisk(OfKind(ReadLayout(*disk), ObjectKind::kPartition),
                       TestSupport::SfdiskPartitions(Report("past-end.sfdisk.json")));
    }
}

TEST_F(DiskFixtureTest, FatCheckComparesCopiesAndEntries) {
    std::ifstream in(folder_ / "floppy.img", std::ios::binary);
    const std::vector<std::uint8_t> image((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto check = [&](std::vector<std::uint8_t> bytes) {
        MemoryDisk disk(std::move(bytes), 512);
        VolumeReader volume(disk, 0, disk.SectorCount());
        const ProbeResult probe = ProbeFileSystem(volume);
        CheckResult result;
        EXPECT_TRUE(CheckFileSystem(volume, probe.info, result).Succeeded());
        EXPECT_TRUE(result.authoritative);
        return result.warnings;
    };
    EXPECT_EQ(check(image), 0u);
    // Offsets from fsck.fat's report: the first FAT at byte 512, the second 4608 bytes after it.
    auto otherCopy = image;
    otherCopy[512 + 4608 + 10] ^= 0x01;
    EXPECT_EQ(check(otherCopy), kWarnDifferentFatCopies);
    auto badMedia = image;
    badMedia[512] = 0xF8;  // FAT[0] must repeat the media byte 0xF0
    EXPECT_EQ(check(badMedia) & kWarnFatCorrupted, kWarnFatCorrupted);
    auto badLink = image;
    // FAT12 entry 2 becomes 0xEFF: past the last cluster (2848) and below the reserved values.
    badLink[512 + 3] = 0xFF;
    badLink[512 + 4] = 0x0E;
    EXPECT_EQ(check(badLink) & kWarnFatCorrupted, kWarnFatCorrupted);
}

}  // namespace
