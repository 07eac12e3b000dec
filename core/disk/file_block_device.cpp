// Range-checked sector reads over a RawFile.
#include "core/disk/file_block_device.h"

#include "core/disk/disk_errors.h"

namespace Disk {

FileBlockDevice::FileBlockDevice(RawFile file, Common::Error openError, std::uint32_t sectorSize,
                                 std::uint64_t sectorCount, DeviceFacts facts, VolumeQuery volumes)
    : file_(std::move(file)),
      openError_(std::move(openError)),
      sectorSize_(sectorSize),
      sectorCount_(sectorCount),
      facts_(std::move(facts)),
      volumes_(std::move(volumes)) {}

Common::Error FileBlockDevice::Read(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) {
    if (!file_.IsOpen())
        return Common::Error::Make(Codes::kNotReadable, L"The disk has no device that can be read.", openError_);
    if (!InsideDevice(first, count, sectorCount_)) return OutsideDevice(first, count, sectorCount_);
    const std::uint64_t bytes = std::uint64_t{count} * sectorSize_;
    if (bytes > kMaxReadBytes)
        return Common::Error::Make(Codes::kReadFailed, L"A read of " + std::to_wstring(bytes) + L" bytes is too large.");
    data.resize(static_cast<std::size_t>(bytes));
    auto error = file_.ReadAt(first * sectorSize_, data);
    if (error.Failed()) data.clear();
    return error;
}

}  // namespace Disk
