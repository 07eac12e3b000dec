// libFuzzer target: the partition schemes (MBR with its EBR chain, GPT with both headers) over a sparse disk.
#include <cstddef>
#include <cstdint>

#include "core/disk/layout.h"
#include "fuzz/disk/sparse_disk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Disk::SparseDisk disk({data, size});
    const Disk::DiskLayout layout = Disk::ReadLayout(disk);
    // The objects the report walks must lie in disk order, unallocated ones inside the disk.
    std::uint64_t previous = 0;
    for (const auto& object : layout.objects) {
        if (object.first < previous) __builtin_trap();
        previous = object.first;
        if (object.kind == Disk::ObjectKind::kUnallocated && object.End() > disk.SectorCount()) __builtin_trap();
    }
    return 0;
}
