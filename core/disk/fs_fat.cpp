// FAT12/16/32: boot sector (BIOS parameter block), a small FAT reader for the free count and the root
// directory, and the FAT check. Rules from Microsoft's "FAT: General Overview of On-Disk Format" (1.03).
#include <zlib.h>

#include <algorithm>
#include <bit>
#include <set>
#include <unordered_set>

#include "core/common/strings.h"
#include "core/disk/bytes.h"
#include "core/disk/disk_errors.h"
#include "core/disk/fat.h"
#include "core/disk/fat_volume.h"
#include "core/disk/fs_probe.h"

namespace Disk {
namespace {

constexpr std::uint32_t kMaxRootEntries = 65536;
// How deep the check follows folders; deeper ones are not judged.
constexpr int kMaxCheckDepth = 64;

bool ValidMedia(std::uint8_t media) { return media == 0xF0 || media >= 0xF8; }

Common::Error Broken(const wchar_t* what) { return Common::Error::Make(Codes::kBadStructure, what); }

// Counts the used entries of a directory and picks up the volume label entry.
struct RootScan {
    std::uint32_t used = 0;
    std::optional<std::u16string> label;
    bool ended = false;
};

void ScanDirectory(Bytes entries, RootScan& scan) {
    for (std::size_t offset = 0; offset + 32 <= entries.size() && !scan.ended; offset += 32) {
        const Bytes entry = entries.subspan(offset, 32);
        if (entry[0] == 0x00) {
            scan.ended = true;
            break;
        }
        if (entry[0] == 0xE5) continue;
        ++scan.used;
        const std::uint8_t attributes = entry[11];
        if (attributes != 0x0F && (attributes & 0x08) && !scan.label) scan.label = LabelFromBytes(entry.first(11));
    }
}

Common::Error ScanRoot(VolumeReader& volume, const FatLayout& layout, RootScan& scan) {
    std::vector<std::uint8_t> data;
    if (layout.fatBits != 32) {
        const std::uint64_t bytes = std::uint64_t{layout.rootEntries} * 32;
        if (auto error = volume.Read(layout.RootDirOffset(), static_cast<std::size_t>(bytes), data); error.Failed())
            return error;
        ScanDirectory(data, scan);
        return {};
    }
    FatTable fat(volume, layout);
    std::vector<std::uint32_t> chain;
    bool ended = false;
    const std::size_t limit = std::max<std::size_t>(1, kMaxRootEntries * 32 / layout.ClusterBytes());
    // A broken root chain still gives the clusters before the break.
    const auto followed = fat.Chain(layout.rootCluster, limit, chain, ended);
    for (const std::uint32_t cluster : chain) {
        if (auto error = volume.Read(layout.ClusterOffset(cluster), layout.ClusterBytes(), data); error.Failed())
            return error;
        ScanDirectory(data, scan);
        if (scan.ended) break;
    }
    return followed;
}

// Reads FAT copy `copy` in pieces and hands each piece's bytes, with its offset in the FAT, to `visit`.
template <typename Visit>
Common::Error ForEachFatChunk(VolumeReader& volume, const FatLayout& layout, std::uint32_t copy, Visit visit) {
    std::vector<std::uint8_t> chunk;
    const std::uint64_t total = layout.FatBytes();
    const std::uint64_t step = FatChunkBytes();
    for (std::uint64_t done = 0; done < total; done += step) {
        const auto length = static_cast<std::size_t>(std::min(step, total - done));
        if (auto error = volume.Read(layout.FatOffset(copy) + done, length, chunk); error.Failed()) return error;
        visit(done, Bytes(chunk));
    }
    return {};
}

// Visits entries 2 .. clusterCount + 1 of a piece that starts `base` bytes into the FAT, as (cluster, value).
template <typename Visit>
void ForEachEntry(const FatLayout& layout, std::uint64_t base, Bytes bytes, Visit visit) {
    const std::uint64_t last = std::uint64_t{layout.clusterCount} + 1;
    if (layout.fatBits == 12) {
        for (std::uint64_t pair = 0; pair + 3 <= bytes.size(); pair += 3) {
            const std::uint64_t cluster = (base + pair) / 3 * 2;
            const std::uint32_t packed = bytes[pair] | bytes[pair + 1] << 8 | bytes[pair + 2] << 16;
            if (cluster >= 2 && cluster <= last) visit(static_cast<std::uint32_t>(cluster), packed & 0xFFF);
            if (cluster + 1 >= 2 && cluster + 1 <= last) visit(static_cast<std::uint32_t>(cluster + 1), packed >> 12);
        }
        return;
    }
    const std::size_t width = layout.fatBits / 8;
    for (std::size_t at = 0; at + width <= bytes.size(); at += width) {
        const std::uint64_t cluster = (base + at) / width;
        if (cluster < 2 || cluster > last) continue;
        const std::uint32_t value = width == 2 ? Le16(bytes, at) : Le32(bytes, at) & 0x0FFFFFFF;
        visit(static_cast<std::uint32_t>(cluster), value);
    }
}

std::uint32_t Crc(Bytes bytes) {
    return static_cast<std::uint32_t>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
}

// Follows the folder tree from the root and compares what its entries claim with what the FAT holds: every
// chain must start at an allocated cluster that no other entry links to (else chains cross or loop), and
// the clusters that files and folders account for must be all the allocated ones (else some are lost).
class TreeCheck {
public:
    TreeCheck(FatFiles& files, const FatScan& scan, CheckResult& result) : files_(files), scan_(scan), result_(result) {}

    void Run() {
        Visit(files_.RootCluster(), 0, "the root folder");
        if (scan_.sharedClusters) Damaged(std::to_string(scan_.sharedClusters) + " clusters are linked to twice: cluster chains cross or loop");
        if (scan_.allocatedClusters > accounted_)
            Damaged(std::to_string(scan_.allocatedClusters - accounted_) + " allocated clusters belong to no file",
                    kWarnLostClusters);
    }

private:
    void Damaged(const std::string& why, std::uint32_t warning = kWarnFatCorrupted) {
        result_.warnings |= warning;
        result_.issues.push_back({Problem::kFileSystemDamaged, "The FAT check found that " + why + "."});
    }

    void Visit(std::uint32_t firstCluster, int depth, const std::string& where) {
        std::vector<FatDirEntry> entries;
        std::uint64_t clusters = 0;
        if (auto error = files_.ReadDirectory(firstCluster, entries, &clusters); error.Failed()) {
            Damaged(where + " cannot be read (" + Common::WideToUtf8(error.Message()) + ")");
            return;
        }
        accounted_ += clusters;
        const FatLayout& layout = files_.Layout();
        for (const FatDirEntry& entry : entries) {
            const std::string name = "\"" + entry.name + "\"";
            if (entry.firstCluster == 0) {
                if (entry.size != 0) Damaged(name + " has a size but no clusters");
                continue;
            }
            if (!layout.IsDataCluster(entry.firstCluster)) {
                Damaged(name + " starts outside the data area");
                continue;
            }
            if (!heads_.insert(entry.firstCluster).second) {
                Damaged(name + " shares its first cluster with another entry");
                continue;
            }
            if (!scan_.Allocated(entry.firstCluster)) Damaged(name + " starts at a free cluster");
            if (scan_.LinkedTo(entry.firstCluster)) Damaged("the chain of " + name + " is crossed or circular");
            if (!entry.directory) {
                accounted_ += (std::uint64_t{entry.size} + layout.ClusterBytes() - 1) / layout.ClusterBytes();
            } else if (depth < kMaxCheckDepth) {
                Visit(entry.firstCluster, depth + 1, name);
            }
        }
    }

    FatFiles& files_;
    const FatScan& scan_;
    CheckResult& result_;
    std::set<std::uint32_t> heads_;
    std::uint64_t accounted_ = 0;
};

}  // namespace

Common::Error FatTable::Entry(std::uint32_t cluster, std::uint32_t& value, std::uint32_t copy) {
    const std::uint64_t fatStart = layout_.FatOffset(copy);
    const std::uint64_t offset =
        layout_.fatBits == 12 ? cluster + cluster / 2 : std::uint64_t{cluster} * (layout_.fatBits / 8);
    const std::size_t width = layout_.fatBits == 32 ? 4 : 2;
    if (offset + width > layout_.FatBytes()) return Broken(L"A FAT entry lies past the end of the FAT.");
    const std::uint64_t at = fatStart + offset;
    if (window_.empty() || at < windowStart_ || at + width > windowStart_ + window_.size()) {
        windowStart_ = at - at % kWindowBytes;
        const std::uint64_t end = std::min(fatStart + layout_.FatBytes() + 4, volume_.Size());
        if (windowStart_ >= end) return Broken(L"A FAT entry lies past the end of the volume.");
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(kWindowBytes + 4, end - windowStart_));
        if (auto error = volume_.Read(windowStart_, length, window_); error.Failed()) {
            window_.clear();
            return error;
        }
        if (at + width > windowStart_ + window_.size()) return Broken(L"A FAT entry lies past the end of the volume.");
    }
    const Bytes bytes(window_.data() + (at - windowStart_), width);
    if (layout_.fatBits == 12) value = cluster & 1 ? Le16(bytes, 0) >> 4 : Le16(bytes, 0) & 0x0FFF;
    else if (layout_.fatBits == 16) value = Le16(bytes, 0);
    else value = Le32(bytes, 0) & 0x0FFFFFFF;
    return {};
}

Common::Error FatTable::Chain(std::uint32_t first, std::uint64_t limit, std::vector<std::uint32_t>& clusters,
                              bool& ended) {
    clusters.clear();
    ended = false;
    std::unordered_set<std::uint32_t> seen;
    const std::uint32_t endMark = layout_.BadClusterMark() + 1;  // 0x?FF8 and above end a chain
    std::uint32_t cluster = first;
    while (clusters.size() < limit) {
        if (!layout_.IsDataCluster(cluster)) return Broken(L"A cluster chain leaves the data area.");
        if (!seen.insert(cluster).second) return Broken(L"A cluster chain loops.");
        clusters.push_back(cluster);
        std::uint32_t next = 0;
        if (auto error = Entry(cluster, next); error.Failed()) return error;
        if (next >= endMark) {
            ended = true;
            return {};
        }
        if (next == 0 || next == layout_.BadClusterMark()) return Broken(L"A cluster chain runs into a free or bad cluster.");
        cluster = next;
    }
    return {};
}

Common::Error ScanFat(VolumeReader& volume, const FatLayout& layout, FatScan& scan) {
    scan = {};
    if (layout.FatOffset(0) + layout.FatBytes() > volume.Size()) return Broken(L"The FAT lies past the end of the volume.");
    // One bit per cluster that has an entry in the FAT.
    const auto slots = static_cast<std::size_t>(
        std::min<std::uint64_t>(std::uint64_t{layout.clusterCount} + 2, layout.FatBytes() * 8 / layout.fatBits));
    scan.allocated.assign(slots, false);
    scan.linkedTo.assign(slots, false);
    const std::uint32_t lastCluster = layout.clusterCount + 1;
    const std::uint32_t badMark = layout.BadClusterMark();
    const std::uint32_t reservedLow = badMark - 7;  // 0x?FF0..0x?FF6 are reserved values
    return ForEachFatChunk(volume, layout, 0, [&](std::uint64_t base, Bytes bytes) {
        scan.chunkCrcs.push_back(Crc(bytes));
        ForEachEntry(layout, base, bytes, [&](std::uint32_t cluster, std::uint32_t value) {
            if (value == 0) {
                ++scan.freeClusters;
                return;
            }
            if (value == badMark) {
                ++scan.badClusters;
                return;
            }
            ++scan.allocatedClusters;
            scan.allocated[cluster] = true;
            if (value == 1 || (value > lastCluster && value < reservedLow)) scan.corruptEntries = true;
            if (layout.IsDataCluster(value)) {
                if (scan.linkedTo[value]) ++scan.sharedClusters;
                scan.linkedTo[value] = true;
            }
        });
    });
}

std::optional<FatLayout> DecodeFatBootSector(Bytes sector, std::string& why, bool& claimed) {
    claimed = false;
    if (sector.size() < 512) return std::nullopt;
    // The file-system type strings are informational only, but they tell a damaged FAT from another format.
    claimed = HasMagic(sector, 54, "FAT1") || HasMagic(sector, 82, "FAT32") || HasMagic(sector, 54, "FAT     ");
    if (sector[0] != 0xEB && sector[0] != 0xE9) {
        why = "no jump instruction";
        return std::nullopt;
    }
    FatLayout layout;
    layout.bytesPerSector = Le16(sector, 11);
    layout.sectorsPerCluster = sector[13];
    layout.reservedSectors = Le16(sector, 14);
    layout.fatCount = sector[16];
    layout.rootEntries = Le16(sector, 17);
    const std::uint16_t total16 = Le16(sector, 19);
    layout.media = sector[21];
    const std::uint16_t fat16Size = Le16(sector, 22);
    const std::uint32_t total32 = Le32(sector, 32);
    layout.totalSectors = total16 ? total16 : total32;
    layout.fatSectors = fat16Size ? fat16Size : Le32(sector, 36);

    // BPB_BytsPerSec may only be 512, 1024, 2048 or 4096.
    if (layout.bytesPerSector < 512 || layout.bytesPerSector > 4096 || !std::has_single_bit(layout.bytesPerSector)) {
        why = "bytes per sector " + std::to_string(layout.bytesPerSector);
        return std::nullopt;
    }
    // BPB_SecPerClus is a power of two from 1 to 128.
    if (layout.sectorsPerCluster == 0 || !std::has_single_bit(layout.sectorsPerCluster)) {
        why = "sectors per cluster " + std::to_string(layout.sectorsPerCluster);
        return std::nullopt;
    }
    if (layout.reservedSectors == 0 || layout.fatCount == 0 || layout.fatSectors == 0 || layout.totalSectors == 0) {
        why = "a zero reserved-sector, FAT-count, FAT-size or total-sector field";
        return std::nullopt;
    }
    if (!ValidMedia(layout.media)) {
        why = "media byte " + std::to_string(layout.media);
        return std::nullopt;
    }
    const std::uint64_t rootSectors =
        (std::uint64_t{layout.rootEntries} * 32 + layout.bytesPerSector - 1) / layout.bytesPerSector;
    const std::uint64_t metadata =
        layout.reservedSectors + std::uint64_t{layout.fatCount} * layout.fatSectors + rootSectors;
    if (metadata >= layout.totalSectors) {
        why = "no room for data after the FATs and the root directory";
        return std::nullopt;
    }
    // The cluster count decides between FAT12 and FAT16. FAT32 is marked by BPB_FATSz16 = 0 (its FAT size
    // is in BPB_FATSz32), whatever the count: mkfs.fat -F 32 on 4096-byte sectors makes a 100 MiB FAT32
    // volume with fewer than 65,525 clusters.
    const std::uint64_t clusters = (layout.totalSectors - metadata) / layout.sectorsPerCluster;
    layout.clusterCount = static_cast<std::uint32_t>(std::min<std::uint64_t>(clusters, 0x0FFFFFF5));
    layout.fatBits = fat16Size == 0 ? 32 : clusters < 4085 ? 12 : clusters < 65525 ? 16 : 0;
    layout.firstDataSector = metadata;
    if (layout.fatBits == 0) {
        why = "a FAT32 cluster count with a FAT16 FAT-size field";
        return std::nullopt;
    }
    if (layout.fatBits == 32) {
        // FAT32 keeps its root directory in clusters; BPB_RootEntCnt is zero.
        layout.rootCluster = Le32(sector, 44);
        if (layout.rootEntries != 0 || !layout.IsDataCluster(layout.rootCluster)) {
            why = "a FAT32 root directory that is not in the data area";
            return std::nullopt;
        }
    }
    const std::size_t extended = layout.fatBits == 32 ? 64 : 36;
    layout.hasExtendedBpb = sector[extended + 2] == 0x29 || sector[extended + 2] == 0x28;
    if (layout.hasExtendedBpb) {
        layout.serial.assign(sector.begin() + extended + 3, sector.begin() + extended + 7);
        if (sector[extended + 2] == 0x29) layout.bootLabel = LabelFromBytes(sector.subspan(extended + 7, 11));
    }
    claimed = true;
    return layout;
}

ProbeResult ProbeFat(VolumeReader& volume) {
    std::vector<std::uint8_t> sector;
    if (!volume.TryRead(0, 512, sector)) return ProbeResult::NotThisFormat();
    std::string why;
    bool claimed = false;
    const auto layout = DecodeFatBootSector(sector, why, claimed);
    if (!layout) return claimed ? ProbeResult::Failed("the boot sector is invalid: " + why) : ProbeResult::NotThisFormat();

    FileSystemInfo info;
    info.type = layout->fatBits == 32 ? FsType::kFat32 : FsType::kFat16;
    info.sizeBytes = layout->totalSectors * std::uint64_t{layout->bytesPerSector};
    info.blockBytes = layout->ClusterBytes();
    info.blockCount = layout->clusterCount;
    info.reservedBytes = std::uint64_t{layout->reservedSectors} * layout->bytesPerSector;
    info.fatBits = layout->fatBits;
    info.fatCount = layout->fatCount;
    info.fatBytes = layout->FatBytes();
    info.rootEntries = layout->rootEntries;
    info.serial = layout->serial;
    if (layout->fatBits == 12) info.options |= kOptFat12;

    // The free count and the root directory come from the FAT; a volume cut short still has its boot sector.
    // The pass over the FAT is kept for the check, which then need not read the FAT again.
    auto fatScan = std::make_shared<FatScan>();
    if (ScanFat(volume, *layout, *fatScan).Succeeded()) {
        info.freeBlocks = fatScan->freeClusters;
        info.badBlocks = fatScan->badClusters;
        info.fatScan = std::move(fatScan);
    }
    RootScan scan;
    if (ScanRoot(volume, *layout, scan).Succeeded()) {
        info.usedRootEntries = scan.used;
        if (scan.label) info.label = *scan.label;
    }
    if (!scan.label && layout->bootLabel != u"NO NAME") info.label = layout->bootLabel;
    return ProbeResult::Found(std::move(info));
}

Common::Error CheckFat(VolumeReader& volume, const FileSystemInfo& info, CheckResult& result) {
    std::vector<std::uint8_t> sector;
    if (auto error = volume.Read(0, 512, sector); error.Failed()) return error;
    std::string why;
    bool claimed = false;
    const auto layout = DecodeFatBootSector(sector, why, claimed);
    if (!layout) {
        result.issues.push_back({Problem::kFileSystemDamaged, "The FAT boot sector is invalid: " + why + "."});
        return {};
    }
    // The FAT must have an entry for every cluster (two reserved entries first).
    const std::uint64_t entries = layout->FatBytes() * 8 / layout->fatBits;
    if (entries < std::uint64_t{layout->clusterCount} + 2) result.warnings |= kWarnInvalidFatSize;

    // FAT[0] carries the media byte in its low eight bits.
    std::uint32_t first = 0;
    FatTable fat(volume, *layout);
    if (auto error = fat.Entry(0, first); error.Failed()) return error;
    if ((first & 0xFF) != layout->media) result.warnings |= kWarnFatCorrupted;

    std::shared_ptr<const FatScan> scan = info.fatScan;
    if (!scan) {
        auto fresh = std::make_shared<FatScan>();
        if (auto error = ScanFat(volume, *layout, *fresh); error.Failed()) return error;
        scan = std::move(fresh);
    }
    if (scan->corruptEntries) result.warnings |= kWarnFatCorrupted;

    // The other copies are compared with the first through the first's piece checksums.
    for (std::uint32_t copy = 1; copy < layout->fatCount && !(result.warnings & kWarnDifferentFatCopies); ++copy) {
        std::size_t piece = 0;
        auto compared = ForEachFatChunk(volume, *layout, copy, [&](std::uint64_t, Bytes bytes) {
            if (piece >= scan->chunkCrcs.size() || Crc(bytes) != scan->chunkCrcs[piece]) result.warnings |= kWarnDifferentFatCopies;
            ++piece;
        });
        if (compared.Failed()) return compared;
    }

    std::unique_ptr<FatFiles> files;
    if (auto error = FatFiles::Open(std::make_unique<VolumeReader>(volume), files); error.Failed()) {
        result.issues.push_back({Problem::kFileSystemDamaged,
                                 "The FAT file system cannot be read: " + Common::WideToUtf8(error.Message())});
        return {};
    }
    TreeCheck(*files, *scan, result).Run();
    result.authoritative = true;
    return {};
}

}  // namespace Disk
