// libFuzzer target: every file-system probe, and the check of what the first finds, over a sparse volume.
#include <cstddef>
#include <cstdint>

#include "core/disk/fs_probe.h"
#include "fuzz/disk/sparse_disk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Disk::SparseDisk disk({data, size});
    Disk::VolumeReader volume(disk, 0, disk.SectorCount());
    bool checked = false;
    for (const auto& descriptor : Disk::FileSystemDescriptors()) {
        const Disk::ProbeResult result = descriptor.probe(volume);
        if (result.outcome != Disk::ProbeOutcome::kFound || checked) continue;
        Disk::CheckResult check;
        Disk::CheckFileSystem(volume, result.info, check);
        checked = true;
    }
    return 0;
}
