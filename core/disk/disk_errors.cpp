// Range checks shared by every sector reader, and the in-memory disk.
#include "core/disk/disk_errors.h"

#include <algorithm>
#include <string>

#include "core/disk/memory_disk.h"

namespace Disk {

bool InsideDevice(std::uint64_t first, std::uint64_t count, std::uint64_t sectors) {
    return first <= sectors && count <= sectors - first;
}

Common::Error OutsideDevice(std::uint64_t first, std::uint64_t count, std::uint64_t sectors,
                            std::source_location where) {
    return Common::Error::Make(Codes::kOutsideDevice,
                               L"The read of " + std::to_wstring(count) + L" sectors from sector " + std::to_wstring(first) +
                                   L" lies outside the device of " + std::to_wstring(sectors) + L" sectors.",
                               {}, where);
}

Common::Error MemoryDisk::Read(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) {
    if (!InsideDevice(first, count, SectorCount())) return OutsideDevice(first, count, SectorCount());
    const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(first * sectorSize_);
    data.assign(begin, begin + static_cast<std::ptrdiff_t>(std::uint64_t{count} * sectorSize_));
    return {};
}

}  // namespace Disk
