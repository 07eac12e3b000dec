// The Linux block-device source over a sysfs block folder and a device folder of the caller's choosing, so
// that a test can stand a tree of its own in for the kernel's.
#pragma once

#include <filesystem>
#include <memory>

#include "core/disk/block_device.h"

namespace Disk {

// The disks listed in `sysBlock` (as /sys/block lists them), opened as `devices`/<name>.
// MakeSystemSource() is this over /sys/block and /dev.
std::unique_ptr<DiskSource> MakeLinuxSource(std::filesystem::path sysBlock, std::filesystem::path devices);

}  // namespace Disk
