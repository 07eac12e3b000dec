// Choosing how to read one partition's files: the operating system's own mount when there is one, our FAT
// reader for FAT, and on Linux a file-system library for NTFS and exFAT. Every way is read-only.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "core/common/error.h"
#include "core/disk/block_device.h"
#include "core/disk/mounted_volume.h"
#include "core/disk/partition_types.h"

namespace Disk {

struct VolumeToMount {
    SectorReader* disk = nullptr;  // must outlive the mounted volume
    std::uint64_t firstSector = 0;
    std::uint64_t sectorCount = 0;
    FsType type = FsType::kNone;  // as probed; kNone when unknown
    std::optional<VolumeFacts> system;  // the operating system's view of the partition, when it has one
};

// Tries the ways in order and answers the first that opens the volume's root; the error of the last one
// tried when none does. Each failure is logged with its reason.
Common::Error MountVolume(const VolumeToMount& volume, std::unique_ptr<MountedVolume>& mounted);

// A volume read through the operating system's own mount at `root`; `way` names it for log lines.
Common::Error MountDirectory(const std::filesystem::path& root, std::string way, std::unique_ptr<MountedVolume>& mounted);

// Platform parts (volume_mount_posix.cpp, volume_mount_win.cpp).
// Where the operating system serves the volume: Linux's mount point, Windows' volume GUID path.
std::optional<std::filesystem::path> SystemMountPath(const VolumeFacts& facts);
// Whether the file-system library of this platform reads `type`, and opening the volume through it.
bool LibraryReads(FsType type);
Common::Error MountWithLibrary(const VolumeToMount& volume, std::unique_ptr<MountedVolume>& mounted);

}  // namespace Disk
