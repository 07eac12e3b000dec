// A file system of one partition, read through whatever can serve it: the operating system's own mount,
// our FAT reader over the partition's bytes, or a file-system library. Read-only in every case.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/error.h"

namespace Disk {

struct VolumeEntry {
    std::string name;  // UTF-8, as the file system stores it (the long name where FAT has one)
    bool directory = false;
    std::uint64_t size = 0;  // bytes; 0 for a directory
};

// One directory of a mounted volume. Names are matched case-insensitively (ASCII and Latin letters), as
// FAT and NTFS match them, so "BCD" finds "bcd".
class VolumeDirectory {
public:
    virtual ~VolumeDirectory() = default;
    // The entries in the file system's own order, without "." and "..".
    virtual Common::Error List(std::vector<VolumeEntry>& entries) = 0;
    virtual Common::Error OpenDirectory(std::string_view name, std::unique_ptr<VolumeDirectory>& directory) = 0;
    // Reads at most `limit` bytes of the file `name` from its start into `bytes`; `size` is the file's whole
    // size, so that a caller can tell that it was cut.
    virtual Common::Error ReadFile(std::string_view name, std::uint64_t limit, std::string& bytes,
                                   std::uint64_t& size) = 0;
};

class MountedVolume {
public:
    virtual ~MountedVolume() = default;
    virtual std::unique_ptr<VolumeDirectory> Root() = 0;
    // How the volume is read, for log lines: "mounted at /boot/efi", "FAT reader", "file-system library".
    virtual std::string Way() const = 0;
};

// Follows `path` ("EFI/Microsoft/Boot/BCD", '/' or '\\' between names, case-insensitive) from `root` and
// reads the file there, as VolumeDirectory::ReadFile does.
Common::Error ReadVolumeFile(VolumeDirectory& root, std::string_view path, std::uint64_t limit, std::string& bytes,
                             std::uint64_t& size);

}  // namespace Disk
