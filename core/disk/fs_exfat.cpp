// exFAT: main boot sector, root directory (label, allocation bitmap) and the free count from the bitmap.
// Rules from Microsoft's "exFAT file system standard", sections 3.1 and 7.
#include <algorithm>
#include <bit>
#include <set>

#include "core/disk/bytes.h"
#include "core/disk/fs_probe.h"

namespace Disk {
namespace {

struct ExfatLayout {
    std::uint64_t volumeLength = 0;  // sectors
    std::uint32_t fatOffset = 0;
    std::uint32_t fatLength = 0;
    std::uint32_t heapOffset = 0;
    std::uint32_t clusterCount = 0;
    std::uint32_t rootCluster = 0;
    std::uint32_t sectorShift = 0;
    std::uint32_t clusterShift = 0;  // sectors per cluster, as a shift
    std::uint32_t fatCount = 0;

    std::uint64_t ClusterBytes() const { return std::uint64_t{1} << (sectorShift + clusterShift); }
    std::uint64_t ClusterOffset(std::uint32_t cluster) const {
        return (std::uint64_t{heapOffset} << sectorShift) + std::uint64_t{cluster - 2} * ClusterBytes();
    }
    bool IsDataCluster(std::uint32_t cluster) const { return cluster >= 2 && cluster <= clusterCount + 1; }
};

// Follows the FAT from `first` for at most `limit` clusters. A free or out-of-range link is taken to mean
// the rest is contiguous (files flagged NoFatChain leave their FAT entries unset).
std::vector<std::uint32_t> Chain(VolumeReader& volume, const ExfatLayout& layout, std::uint32_t first,
                                 std::uint64_t limit) {
    std::vector<std::uint32_t> clusters;
    std::set<std::uint32_t> seen;
    std::vector<std::uint8_t> entry;
    std::uint32_t cluster = first;
    while (clusters.size() < limit && layout.IsDataCluster(cluster) && seen.insert(cluster).second) {
        clusters.push_back(cluster);
        const std::uint64_t at = (std::uint64_t{layout.fatOffset} << layout.sectorShift) + std::uint64_t{cluster} * 4;
        if (!volume.TryRead(at, 4, entry)) break;
        const std::uint32_t next = Le32(entry, 0);
        if (next == 0xFFFFFFFF) break;
        cluster = layout.IsDataCluster(next) ? next : cluster + 1;
    }
    return clusters;
}

}  // namespace

ProbeResult ProbeExfat(VolumeReader& volume) {
    std::vector<std::uint8_t> sector;
    if (!volume.TryRead(0, 512, sector) || !HasMagic(sector, 3, "EXFAT   ")) return ProbeResult::NotThisFormat();
    // MustBeZero covers the bytes where a FAT parameter block would be.
    if (!std::all_of(sector.begin() + 11, sector.begin() + 64, [](std::uint8_t b) { return b == 0; }))
        return ProbeResult::Failed("the MustBeZero field is not zero");
    ExfatLayout layout;
    layout.volumeLength = Le64(sector, 72);
    layout.fatOffset = Le32(sector, 80);
    layout.fatLength = Le32(sector, 84);
    layout.heapOffset = Le32(sector, 88);
    layout.clusterCount = Le32(sector, 92);
    layout.rootCluster = Le32(sector, 96);
    layout.sectorShift = sector[108];
    layout.clusterShift = sector[109];
    layout.fatCount = sector[110];
    // BytesPerSectorShift is 9 to 12; SectorsPerClusterShift at most 25 minus it; one or two FATs.
    if (layout.sectorShift < 9 || layout.sectorShift > 12 || layout.clusterShift > 25 - layout.sectorShift)
        return ProbeResult::Failed("sector or cluster shift out of range");
    if (layout.fatCount < 1 || layout.fatCount > 2) return ProbeResult::Failed("number of FATs is not 1 or 2");
    if (layout.fatOffset < 24 || layout.fatLength == 0 || layout.heapOffset < layout.fatOffset + layout.fatLength ||
        layout.clusterCount == 0 || layout.clusterCount > 0xFFFFFFF5)
        return ProbeResult::Failed("FAT or cluster heap fields out of range");

    FileSystemInfo info;
    info.type = FsType::kExfat;
    info.sizeBytes = layout.volumeLength << layout.sectorShift;
    info.blockBytes = static_cast<std::uint32_t>(layout.ClusterBytes());
    info.blockCount = layout.clusterCount;
    info.reservedBytes = std::uint64_t{layout.fatOffset} << layout.sectorShift;
    info.fatBits = 32;
    info.fatCount = layout.fatCount;
    info.fatBytes = std::uint64_t{layout.fatLength} << layout.sectorShift;
    info.serial.assign(sector.begin() + 100, sector.begin() + 104);

    // The root directory holds the label (entry type 0x83) and the allocation bitmap (0x81). A directory
    // is at most 256 MiB by the exFAT standard; far fewer clusters are looked at here.
    std::uint32_t bitmapCluster = 0;
    std::uint64_t bitmapBytes = 0;
    std::vector<std::uint8_t> data;
    bool ended = false;
    const std::uint64_t rootLimit = std::max<std::uint64_t>(1, (2u << 20) / layout.ClusterBytes());
    for (const std::uint32_t cluster : Chain(volume, layout, layout.rootCluster, rootLimit)) {
        if (!volume.TryRead(layout.ClusterOffset(cluster), static_cast<std::size_t>(layout.ClusterBytes()), data)) break;
        for (std::size_t at = 0; at + 32 <= data.size(); at += 32) {
            const Bytes entry(data.data() + at, 32);
            if (entry[0] == 0x00) {
                ended = true;
                break;
            }
            if (entry[0] == 0x83) info.label = LabelFromUtf16Le(entry.subspan(2, 2 * std::min<std::size_t>(entry[1], 11)));
            // The first bitmap belongs to the first FAT (BitmapFlags bit 0 clear).
            if (entry[0] == 0x81 && (entry[1] & 1) == 0 && bitmapCluster == 0) {
                bitmapCluster = Le32(entry, 20);
                bitmapBytes = Le64(entry, 24);
            }
        }
        if (ended) break;
    }
    const std::uint64_t needed = (std::uint64_t{layout.clusterCount} + 7) / 8;
    if (bitmapCluster && bitmapBytes >= needed) {
        std::uint64_t used = 0;
        std::uint64_t seen = 0;
        const std::uint64_t clusters = (needed + layout.ClusterBytes() - 1) / layout.ClusterBytes();
        for (const std::uint32_t cluster : Chain(volume, layout, bitmapCluster, clusters)) {
            if (!volume.TryRead(layout.ClusterOffset(cluster), static_cast<std::size_t>(layout.ClusterBytes()), data))
                break;
            for (std::size_t i = 0; i < data.size() && seen < layout.clusterCount; ++i) {
                const std::uint64_t bits = std::min<std::uint64_t>(8, layout.clusterCount - seen);
                used += std::popcount(static_cast<unsigned>(data[i] & ((1u << bits) - 1)));
                seen += bits;
            }
        }
        if (seen == layout.clusterCount) info.freeBlocks = layout.clusterCount - used;
    }
    return ProbeResult::Found(std::move(info));
}

}  // namespace Disk
