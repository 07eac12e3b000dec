// FAT12/16/32: boot sector (BIOS parameter block), a small FAT reader for the free count and the root
// directory, and the FAT check. Rules from Microsoft's "FAT: General Overview of On-Disk Format" (1.03).
#include <algorithm>
#include <bit>
#include <set>

#include "core/disk/bytes.h"
#include "core/disk/fat.h"
#include "core/disk/fs_probe.h"

namespace Disk {
namespace {

constexpr std::size_t kChunkBytes = 1u << 20;
constexpr std::uint32_t kMaxRootEntries = 65536;

bool ValidMedia(std::uint8_t media) { return media == 0xF0 || media >= 0xF8; }

// Reads FAT entries through a window of the volume, so that walking a chain costs one read per window.
class FatReader {
public:
    FatReader(VolumeReader& volume, const FatLayout& layout) : volume_(volume), layout_(layout) {}

    // Entry `cluster` of FAT copy `copy`.
    Common::Error Entry(std::uint32_t cluster, std::uint32_t& value, std::uint32_t copy = 0) {
        const std::uint64_t fatStart = layout_.FatOffset(copy);
        const std::uint64_t offset = layout_.fatBits == 12 ? cluster + cluster / 2
                                                           : std::uint64_t{cluster} * (layout_.fatBits / 8);
        const std::size_t width = layout_.fatBits == 32 ? 4 : 2;
        if (offset + width > layout_.FatBytes())
            return Common::Error::Make(0x40210, L"A FAT entry lies past the end of the FAT.");
        const std::uint64_t at = fatStart + offset;
        if (window_.empty() || at < windowStart_ || at + width > windowStart_ + window_.size()) {
            windowStart_ = at - at % kWindowBytes;
            const std::uint64_t end = std::min(fatStart + layout_.FatBytes() + 4, volume_.Size());
            const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(kWindowBytes + 4, end - windowStart_));
            if (auto error = volume_.Read(windowStart_, length, window_); error.Failed()) {
                window_.clear();
                return error;
            }
            if (at + width > windowStart_ + window_.size())
                return Common::Error::Make(0x40210, L"A FAT entry lies past the end of the volume.");
        }
        const Bytes bytes(window_.data() + (at - windowStart_), width);
        if (layout_.fatBits == 12) value = cluster & 1 ? Le16(bytes, 0) >> 4 : Le16(bytes, 0) & 0x0FFF;
        else if (layout_.fatBits == 16) value = Le16(bytes, 0);
        else value = Le32(bytes, 0) & 0x0FFFFFFF;
        return {};
    }

private:
    static constexpr std::uint64_t kWindowBytes = 64 * 1024;
    VolumeReader& volume_;
    const FatLayout& layout_;
    std::vector<std::uint8_t> window_;
    std::uint64_t windowStart_ = 0;
};

// The clusters of the chain from `first`, at most `limit` of them; a loop or a bad link ends the chain.
std::vector<std::uint32_t> Chain(FatReader& fat, const FatLayout& layout, std::uint32_t first, std::size_t limit) {
    std::vector<std::uint32_t> clusters;
    std::set<std::uint32_t> seen;
    std::uint32_t cluster = first;
    while (clusters.size() < limit && layout.IsDataCluster(cluster) && seen.insert(cluster).second) {
        clusters.push_back(cluster);
        if (fat.Entry(cluster, cluster).Failed()) break;
    }
    return clusters;
}

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

Common::Error ScanRoot(VolumeReader& volume, const FatLayout& layout, FatReader& fat, RootScan& scan) {
    std::vector<std::uint8_t> data;
    if (layout.fatBits != 32) {
        const std::uint64_t bytes = std::uint64_t{layout.rootEntries} * 32;
        if (auto error = volume.Read(layout.RootDirOffset(), static_cast<std::size_t>(bytes), data); error.Failed())
            return error;
        ScanDirectory(data, scan);
        return {};
    }
    const std::size_t limit = std::max<std::size_t>(1, kMaxRootEntries * 32 / layout.ClusterBytes());
    for (const std::uint32_t cluster : Chain(fat, layout, layout.rootCluster, limit)) {
        if (auto error = volume.Read(layout.ClusterOffset(cluster), layout.ClusterBytes(), data); error.Failed())
            return error;
        ScanDirectory(data, scan);
        if (scan.ended) break;
    }
    return {};
}

// Reads FAT copy `copy` in chunks and hands each chunk's bytes, with its offset in the FAT, to `visit`.
template <typename Visit>
Common::Error ForEachFatChunk(VolumeReader& volume, const FatLayout& layout, std::uint32_t copy, Visit visit) {
    std::vector<std::uint8_t> chunk;
    const std::uint64_t total = layout.FatBytes();
    // FAT12 entries come in 3-byte pairs and FAT32 entries are 4 bytes: a multiple of 12 keeps every entry
    // whole in one chunk.
    const std::uint64_t step = kChunkBytes - kChunkBytes % 12;
    for (std::uint64_t done = 0; done < total; done += step) {
        const auto length = static_cast<std::size_t>(std::min(step, total - done));
        if (auto error = volume.Read(layout.FatOffset(copy) + done, length, chunk); error.Failed()) return error;
        visit(done, Bytes(chunk));
    }
    return {};
}

// Visits entries 2 .. clusterCount + 1 that lie inside the FAT, as (cluster, value).
template <typename Visit>
Common::Error ForEachEntry(VolumeReader& volume, const FatLayout& layout, std::uint32_t copy, Visit visit) {
    const std::uint64_t last = std::uint64_t{layout.clusterCount} + 1;
    return ForEachFatChunk(volume, layout, copy, [&](std::uint64_t base, Bytes bytes) {
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
    });
}

}  // namespace

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
    // The FAT type is decided by the cluster count alone.
    const std::uint64_t clusters = (layout.totalSectors - metadata) / layout.sectorsPerCluster;
    layout.clusterCount = static_cast<std::uint32_t>(std::min<std::uint64_t>(clusters, 0x0FFFFFF5));
    layout.fatBits = clusters < 4085 ? 12 : clusters < 65525 ? 16 : 32;
    layout.firstDataSector = metadata;
    if (layout.fatBits == 32) {
        // FAT32 keeps its root directory in clusters; BPB_RootEntCnt and BPB_FATSz16 are zero.
        if (layout.rootEntries != 0 || fat16Size != 0) {
            why = "a FAT32 cluster count with FAT16 root-directory or FAT-size fields";
            return std::nullopt;
        }
        layout.rootCluster = Le32(sector, 44);
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
    std::uint64_t free = 0;
    std::uint64_t bad = 0;
    const std::uint32_t badMark = layout->BadClusterMark();
    const auto counted = ForEachEntry(volume, *layout, 0, [&](std::uint32_t, std::uint32_t value) {
        if (value == 0) ++free;
        else if (value == badMark) ++bad;
    });
    if (counted.Succeeded()) {
        info.freeBlocks = free;
        info.badBlocks = bad;
    }
    FatReader fat(volume, *layout);
    RootScan scan;
    if (ScanRoot(volume, *layout, fat, scan).Succeeded()) {
        info.usedRootEntries = scan.used;
        if (scan.label) info.label = *scan.label;
    }
    if (!scan.label && layout->bootLabel != u"NO NAME") info.label = layout->bootLabel;
    return ProbeResult::Found(std::move(info));
}

Common::Error CheckFat(VolumeReader& volume, CheckResult& result) {
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
    FatReader fat(volume, *layout);
    if (auto error = fat.Entry(0, first); error.Failed()) return error;
    if ((first & 0xFF) != layout->media) result.warnings |= kWarnFatCorrupted;

    const std::uint32_t lastCluster = layout->clusterCount + 1;
    const std::uint32_t reservedLow = layout->BadClusterMark() - 7;  // 0x?FF0..0x?FF6 are reserved values
    auto corrupted = [&](std::uint32_t, std::uint32_t value) {
        if (value == 1 || (value > lastCluster && value < reservedLow)) result.warnings |= kWarnFatCorrupted;
    };
    if (auto error = ForEachEntry(volume, *layout, 0, corrupted); error.Failed()) return error;

    std::vector<std::uint8_t> firstCopy;
    std::vector<std::uint8_t> otherCopy;
    for (std::uint32_t copy = 1; copy < layout->fatCount && !(result.warnings & kWarnDifferentFatCopies); ++copy) {
        const std::uint64_t total = layout->FatBytes();
        for (std::uint64_t done = 0; done < total; done += kChunkBytes) {
            const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(kChunkBytes, total - done));
            if (auto error = volume.Read(layout->FatOffset(0) + done, length, firstCopy); error.Failed()) return error;
            if (auto error = volume.Read(layout->FatOffset(copy) + done, length, otherCopy); error.Failed()) return error;
            if (firstCopy != otherCopy) {
                result.warnings |= kWarnDifferentFatCopies;
                break;
            }
        }
    }
    result.authoritative = true;
    return {};
}

}  // namespace Disk
