// Sector reads of the disk report.
//
// Dump lengths, by kind of object (never past the object's end, nor past the read buffer):
//   - the MBR object and extended partition tables: their one table sector;
//   - scheme metadata regions: 3 sectors from the region's start moved back by its GPT metadata kind, so
//     the primary GPT region shows the protective MBR, the header and the first sector of entries;
//   - unallocated regions: their first sector (enough to see whether the space was ever written);
//   - partitions and volumes: their first 2 KiB, at least one sector: a FAT or NTFS boot sector with the
//     FAT32 FSInfo sector, and the ext superblock at byte 1024.
// The read buffer holds 64 KiB: an absurd sector size or length reads no more than that.
#include "core/da_api/disks_report_sectors.h"

#include <algorithm>

#include "core/common/log.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/disks_report_access.h"
#include "core/da_api/report_printf.h"

namespace DaApi::DisksReport {
namespace {

constexpr std::uint64_t kTableSectors = 1;
constexpr std::uint64_t kMetadataSectors = 3;
constexpr std::uint64_t kUnallocatedSectors = 1;
constexpr std::uint64_t kPartitionBytes = 2048;

struct SectorRange {
    std::uint64_t first = 0;
    std::uint64_t count = 0;
};

// A sector must fit the read buffer; a zero size means the disk reported none.
Common::Error CheckSectorSize(std::uint64_t sectorSize) {
    if (sectorSize != 0 && sectorSize <= kReadBufferBytes) return {};
    return Common::Error::Make(Common::Codes::kUnexpected,
                               L"The sector size " + std::to_wstring(sectorSize) + L" is not supported.");
}

Common::Error Read(const SectorRange& range, std::vector<std::uint8_t>& data) {
    return Common::CatchErrors([&] {
        return Instance().ReadSectors(range.first, static_cast<std::uint32_t>(range.count), data);
    });
}

SectorRange DumpRange(std::uint64_t sectorSize) {
    std::uint64_t first = Get(Prop::kFirstSector);
    std::uint64_t size = Get(Prop::kSectorCount);
    std::uint64_t length;
    if (Get(Prop::kIsMbr) != 0 || Get(Prop::kExtendedTable) != 0) {
        length = kTableSectors;
    } else if (Get(Prop::kIsMetadata) != 0) {
        std::uint64_t back = std::min(first, Get(Prop::kGptMetadataKind));
        first -= back;
        size += back;
        length = kMetadataSectors;
    } else if (Get(Prop::kIsUnallocated) != 0) {
        length = kUnallocatedSectors;
    } else {
        length = std::max<std::uint64_t>(1, (kPartitionBytes + sectorSize - 1) / sectorSize);
    }
    return {first, std::min({length, size, kReadBufferBytes / sectorSize})};
}

}  // namespace

std::optional<DiskGeometry> CurrentGeometry() {
    return UsableGeometry({Get(Prop::kCylinders), Get(Prop::kHeads), Get(Prop::kSectorsPerTrack)});
}

void AppendObjectDump(std::string& out) {
    if (Get(Prop::kNoIo) != 0) {
        out += " - No I/O disk";
        return;
    }
    std::uint64_t sectorSize = SectorSize();
    std::vector<std::uint8_t> data;
    SectorRange range;
    Common::Error error = CheckSectorSize(sectorSize);
    if (error.Succeeded()) {
        range = DumpRange(sectorSize);
        if (range.count == 0) return;
        error = Read(range, data);
    }
    if (error.Failed()) {
        out += " - Disk Read " + Narrow(error.Message());
        return;
    }
    data.resize(std::min<std::size_t>(data.size(), range.count * sectorSize));
    AppendSectorDump(out, data, sectorSize, range.first, CurrentGeometry());
}

std::optional<std::vector<std::uint8_t>> ReadFirstSector() {
    if (Get(Prop::kNoIo) != 0) return std::nullopt;
    std::vector<std::uint8_t> data;
    std::uint64_t sectorSize = SectorSize();
    Common::Error error = CheckSectorSize(sectorSize);
    if (error.Succeeded()) error = Read({Get(Prop::kFirstSector), 1}, data);
    if (error.Failed()) {
        Common::Log::WriteError(Common::Log::kWarning, "Disk report: cannot read an object's first sector: ", error);
        return std::nullopt;
    }
    if (data.size() > sectorSize) data.resize(sectorSize);
    return data;
}

}  // namespace DaApi::DisksReport
