// A disk held in memory: fuzz targets and tests drive the decoders through it.
#pragma once

#include <vector>

#include "core/disk/block_device.h"

namespace Disk {

class MemoryDisk final : public SectorReader {
public:
    // Trailing bytes that do not fill a sector are not part of the disk.
    MemoryDisk(std::vector<std::uint8_t> bytes, std::uint32_t sectorSize)
        : bytes_(std::move(bytes)), sectorSize_(sectorSize) {}

    std::uint32_t SectorSize() const override { return sectorSize_; }
    std::uint64_t SectorCount() const override { return bytes_.size() / sectorSize_; }
    Common::Error Read(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) override;

private:
    std::vector<std::uint8_t> bytes_;
    std::uint32_t sectorSize_;
};

}  // namespace Disk
