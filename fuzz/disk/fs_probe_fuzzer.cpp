// libFuzzer target: every file-system probe and the file-system check over a sparse volume.
#include <cstddef>
#include <cstdint>

#include "core/disk/fs_probe.h"
#include "fuzz/disk/sparse_disk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Disk::SparseDisk disk({data, size});
    Disk::VolumeReader volume(disk, 0, disk.SectorCount());
    for (const auto& descriptor : Disk::FileSystemDescriptors()) descriptor.probe(volume);
    const Disk::ProbeResult result = Disk::ProbeFileSystem(volume);
    if (result.outcome == Disk::ProbeOutcome::kFound) {
        Disk::CheckResult check;
        Disk::CheckFileSystem(volume, result.info, check);
    }
    return 0;
}
