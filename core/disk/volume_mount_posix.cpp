// Linux: the mount point that /proc/self/mountinfo gives for the partition's device number (whole-volume
// mounts only), and The Sleuth Kit's library for NTFS and exFAT that nothing mounts.
#include "core/disk/volume_mount.h"

namespace Disk {

std::optional<std::filesystem::path> SystemMountPath(const VolumeFacts& facts) {
    if (facts.mountPoint.empty()) return std::nullopt;
    return std::filesystem::path(facts.mountPoint);
}

bool LibraryReads(FsType type) { return type == FsType::kNtfs || type == FsType::kExfat; }

}  // namespace Disk
