// The FAT boot sector's layout fields (BIOS parameter block) and the places they define.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

// Decodes and checks a FAT boot sector. `claimed` is set when the sector carries a FAT type string or a
// sound parameter block, so that a damaged FAT is told from another format; `why` names the broken rule.
std::optional<FatLayout> DecodeFatBootSector(Bytes sector, std::string& why, bool& claimed);

}  // namespace Disk
