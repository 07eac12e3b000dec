// Our own read-only FAT12/16/32 file reader over a volume's bytes: directories with their long names, and
// files through their cluster chains. It serves image files, partitions that no operating system mounts,
// and the EFI system partition, which Windows mounts without a letter and guards.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "core/disk/fat.h"
#include "core/disk/fs_probe.h"
#include "core/disk/mounted_volume.h"

namespace Disk {

struct FatDirEntry {
    std::string name;  // UTF-8: the long name where a sound one precedes the short entry
    bool directory = false;
    std::uint32_t firstCluster = 0;
    std::uint32_t size = 0;
};

// Turns 32-byte directory entries into named entries. Long-name entries are kept across calls, so a name
// may span two clusters. Volume labels, "." and ".." and deleted entries are left out.
class FatDirectoryDecoder {
public:
    explicit FatDirectoryDecoder(bool fat32) : fat32_(fat32) {}
    // Appends the entries of `entries` to `out`; false once the end-of-directory mark was met.
    bool Add(Bytes entries, std::vector<FatDirEntry>& out);

private:
    bool fat32_;
    std::u16string longName_;
    int expected_ = 0;  // sequence number of the long-name entry that must come next; 0 when none is open
    std::uint8_t checksum_ = 0;
};

class FatFiles {
public:
    // A FAT directory holds at most 65,536 entries; one that goes on longer never ends.
    static constexpr std::uint64_t kMaxDirectoryBytes = 65536 * 32;

    // Fails when `volume` does not start with a sound FAT boot sector.
    static Common::Error Open(std::unique_ptr<VolumeReader> volume, std::unique_ptr<FatFiles>& files);

    const FatLayout& Layout() const { return layout_; }
    VolumeReader& Volume() { return *volume_; }
    FatTable& Table() { return table_; }
    // The first cluster of the root directory; 0 for the fixed root region of FAT12 and FAT16.
    std::uint32_t RootCluster() const { return layout_.fatBits == 32 ? layout_.rootCluster : 0; }

    // The entries of the directory that starts at `firstCluster` (RootCluster() for the root). The number
    // of clusters the directory took is left in `clusters` when it is not null.
    Common::Error ReadDirectory(std::uint32_t firstCluster, std::vector<FatDirEntry>& entries,
                                std::uint64_t* clusters = nullptr);
    // At most `limit` bytes of the file from its start. Fails when the file's chain is broken or shorter
    // than the part of its size that is read, or when the size exceeds the volume.
    Common::Error ReadFile(const FatDirEntry& file, std::uint64_t limit, std::string& bytes);

private:
    FatFiles(std::unique_ptr<VolumeReader> volume, const FatLayout& layout)
        : volume_(std::move(volume)), layout_(layout), table_(*volume_, layout_) {}

    std::unique_ptr<VolumeReader> volume_;
    FatLayout layout_;
    FatTable table_;
};

// A mounted volume served by the FAT reader.
std::unique_ptr<MountedVolume> MakeFatMountedVolume(std::unique_ptr<FatFiles> files);

}  // namespace Disk
