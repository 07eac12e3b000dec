// libFuzzer target: the boot-sector, partition-table and sector-dump printouts over one arbitrary sector.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "core/da_api/boot_sector_dump.h"
#include "core/da_api/partition_table_dump.h"
#include "core/da_api/sector_dump.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Sectors are 512 to 4096 bytes; other lengths never reach the printers.
    if (size < 512 || size > 4096) return 0;
    std::span<const std::uint8_t> sector(data, size);
    std::string out;
    for (DaApi::BootSectorLayout layout :
         {DaApi::BootSectorLayout::kFat16, DaApi::BootSectorLayout::kFat32, DaApi::BootSectorLayout::kNtfs}) {
        DaApi::AppendBootSector(out, layout, sector);
    }
    DaApi::AppendPartitionTable(out, sector, [](std::uint8_t type) { return type == 7 ? "NTFS" : ""; });
    // The same bytes as a dump of 512-byte sectors with a geometry taken from the input.
    DaApi::DiskGeometry geometry{data[0], data[1], data[2]};
    DaApi::AppendSectorDump(out, sector, 512, data[3], DaApi::UsableGeometry(geometry));
    return 0;
}
