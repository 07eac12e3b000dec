// A block device over a RawFile: image files, Linux block devices and Windows physical drives alike.
#pragma once

#include <functional>

#include "core/disk/block_device.h"
#include "core/disk/raw_file.h"

namespace Disk {

class FileBlockDevice final : public BlockDevice {
public:
    using VolumeQuery = std::function<std::vector<VolumeFacts>()>;

    // `file` may be closed: the device is then listed but every read fails with `openError` as the cause.
    FileBlockDevice(RawFile file, Common::Error openError, std::uint32_t sectorSize, std::uint64_t sectorCount,
                    DeviceFacts facts, VolumeQuery volumes = {});

    std::uint32_t SectorSize() const override { return sectorSize_; }
    std::uint64_t SectorCount() const override { return sectorCount_; }
    Common::Error Read(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) override;
    bool Readable() const override { return file_.IsOpen(); }
    const DeviceFacts& Facts() const override { return facts_; }
    std::vector<VolumeFacts> Volumes() override { return volumes_ ? volumes_() : std::vector<VolumeFacts>(); }

    // One read asks for at most this much; larger requests are a caller's mistake, not a disk's.
    static constexpr std::uint64_t kMaxReadBytes = 256u << 20;

private:
    RawFile file_;
    Common::Error openError_;
    std::uint32_t sectorSize_;
    std::uint64_t sectorCount_;
    DeviceFacts facts_;
    VolumeQuery volumes_;
};

}  // namespace Disk
