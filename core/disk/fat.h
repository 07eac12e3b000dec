// The FAT boot sector's layout fields (BIOS parameter block) and the places they define.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "core/disk/bytes.h"

namespace Disk {

struct FatLayout {
    std::uint32_t bytesPerSector = 0;
    std::uint32_t sectorsPerCluster = 0;
    std::uint32_t reservedSectors = 0;
    std::uint32_t fatCount = 0;
    std::uint32_t rootEntries = 0;
    std::uint64_t totalSectors = 0;
    std::uint32_t fatSectors = 0;
    std::uint8_t media = 0;
    std::uint32_t fatBits = 0;
    std::uint32_t clusterCount = 0;
    std::uint64_t firstDataSector = 0;
    std::uint32_t rootCluster = 0;  // FAT32
    bool hasExtendedBpb = false;
    std::vector<std::uint8_t> serial;  // 4 bytes when hasExtendedBpb
    std::u16string bootLabel;

    std::uint32_t ClusterBytes() const { return bytesPerSector * sectorsPerCluster; }
    std::uint64_t FatBytes() const { return std::uint64_t{fatSectors} * bytesPerSector; }
    std::uint64_t FatOffset(std::uint32_t copy) const {
        return (reservedSectors + std::uint64_t{copy} * fatSectors) * bytesPerSector;
    }
    std::uint64_t RootDirOffset() const {
        return (reservedSectors + std::uint64_t{fatCount} * fatSectors) * bytesPerSector;
    }
    std::uint64_t ClusterOffset(std::uint32_t cluster) const {
        return (firstDataSector + std::uint64_t{cluster - 2} * sectorsPerCluster) * bytesPerSector;
    }
    bool IsDataCluster(std::uint32_t cluster) const { return cluster >= 2 && cluster <= clusterCount + 1; }
    std::uint32_t BadClusterMark() const { return fatBits == 12 ? 0xFF7 : fatBits == 16 ? 0xFFF7 : 0x0FFFFFF7; }
};

class VolumeReader;

// Reads FAT entries through a window of the volume, so that walking a chain costs one read per window
// rather than one per cluster.
class FatTable {
public:
    FatTable(VolumeReader& volume, const FatLayout& layout) : volume_(volume), layout_(layout) {}

    // Entry `cluster` of FAT copy `copy`.
    Common::Error Entry(std::uint32_t cluster, std::uint32_t& value, std::uint32_t copy = 0);

    // Follows the chain from `first` for at most `limit` clusters; `ended` tells whether its end mark came
    // within them. A link outside the data area, a free or bad cluster inside the chain and a loop are
    // errors: a chain is never followed further than its clusters allow.
    Common::Error Chain(std::uint32_t first, std::uint64_t limit, std::vector<std::uint32_t>& clusters, bool& ended);

private:
    static constexpr std::uint64_t kWindowBytes = 64 * 1024;
    VolumeReader& volume_;
    const FatLayout& layout_;
    std::vector<std::uint8_t> window_;
    std::uint64_t windowStart_ = 0;
};

// What one pass over the first FAT copy learns: the counts the probe reports and what the check needs,
// so that the check never reads that copy again. The bit vectors hold one bit per cluster number.
struct FatScan {
    std::uint64_t freeClusters = 0;
    std::uint64_t badClusters = 0;
    std::uint64_t allocatedClusters = 0;
    bool corruptEntries = false;        // a link to cluster 1, or past the last cluster below the reserved values
    std::uint64_t sharedClusters = 0;   // clusters that two entries link to: crossed or circular chains
    std::vector<std::uint32_t> chunkCrcs;  // CRC-32 of each FatChunkBytes() piece, to compare the other copies
    std::vector<bool> allocated;
    std::vector<bool> linkedTo;         // some allocated entry links to this cluster

    bool Allocated(std::uint32_t cluster) const { return cluster < allocated.size() && allocated[cluster]; }
    bool LinkedTo(std::uint32_t cluster) const { return cluster < linkedTo.size() && linkedTo[cluster]; }
};

// The size of the pieces a FAT is read in. FAT12 entries come in 3-byte pairs and FAT32 entries are 4
// bytes: a multiple of 12 keeps every entry whole in one piece.
constexpr std::uint64_t FatChunkBytes() { return (1u << 20) - (1u << 20) % 12; }

// Reads FAT copy 0 once, from start to end.
Common::Error ScanFat(VolumeReader& volume, const FatLayout& layout, FatScan& scan);

// Decodes and checks a FAT boot sector. `claimed` is set when the sector carries a FAT type string or a
// sound parameter block, so that a damaged FAT is told from another format; `why` names the broken rule.
std::optional<FatLayout> DecodeFatBootSector(Bytes sector, std::string& why, bool& claimed);

}  // namespace Disk
