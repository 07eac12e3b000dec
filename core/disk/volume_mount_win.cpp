// Windows: the partition's volume through its volume GUID path, which needs no drive letter. No file-system
// library is linked here: an NTFS volume that Windows does not mount (one inside an image) stays unread.
#include "core/disk/volume_mount.h"

#include "core/common/strings.h"
#include "core/disk/disk_errors.h"

namespace Disk {

std::optional<std::filesystem::path> SystemMountPath(const VolumeFacts& facts) {
    if (facts.volumePath.empty()) return std::nullopt;
    return Common::PathFromUtf8(facts.volumePath);
}

bool LibraryReads(FsType) { return false; }

Common::Error MountWithLibrary(const VolumeToMount&, std::unique_ptr<MountedVolume>& mounted) {
    mounted.reset();
    return Common::Error::Make(Codes::kNotMountable, L"No file-system library is available on Windows.");
}

}  // namespace Disk
