// libFuzzer target: the FAT file reader over a sparse volume. Every folder is listed and every file read
// (cut at 64 KiB), so broken chains, loops and names meet the reader's bounds.
#include <cstddef>
#include <cstdint>

#include "core/disk/fat_volume.h"
#include "fuzz/disk/sparse_disk.h"

namespace {

void Walk(Disk::VolumeDirectory& directory, int depth) {
    std::vector<Disk::VolumeEntry> entries;
    if (depth > 8 || directory.List(entries).Failed()) return;
    for (const Disk::VolumeEntry& entry : entries) {
        if (entry.directory) {
            std::unique_ptr<Disk::VolumeDirectory> sub;
            if (directory.OpenDirectory(entry.name, sub).Succeeded()) Walk(*sub, depth + 1);
            continue;
        }
        std::string bytes;
        std::uint64_t size = 0;
        directory.ReadFile(entry.name, 64 * 1024, bytes, size);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Disk::SparseDisk disk({data, size});
    std::unique_ptr<Disk::FatFiles> files;
    if (Disk::FatFiles::Open(std::make_unique<Disk::VolumeReader>(disk, 0, disk.SectorCount()), files).Failed())
        return 0;
    Walk(*Disk::MakeFatMountedVolume(std::move(files))->Root(), 0);
    return 0;
}
