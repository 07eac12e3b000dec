// The hexadecimal dump of an object's leading sectors, with runs of uniform sectors folded into one line
// and all-zero sixteen-byte lines folded into " -0".
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace DaApi {

// A disk's CHS geometry (properties 353, 355, 356).
struct DiskGeometry {
    std::uint64_t cylinders = 0;
    std::uint64_t heads = 0;
    std::uint64_t sectorsPerTrack = 0;
};

// The geometry when it can place a sector (heads and sectors per track both non-zero).
std::optional<DiskGeometry> UsableGeometry(const DiskGeometry& geometry);

// " (%I64u %u %u)": cylinder, head and 1-based sector of `sector`, or nothing without a geometry.
std::string ChsSuffix(std::uint64_t sector, const std::optional<DiskGeometry>& geometry);

// "Sector %I64u (0x%I64X)" and the CHS suffix.
std::string SectorName(std::uint64_t sector, const std::optional<DiskGeometry>& geometry);

// Appends the dump of `data`, whole sectors of `sectorSize` bytes numbered from `firstSector`. The text
// starts with "\r\n" and leaves the last line open, as every piece of the sector pass does.
void AppendSectorDump(std::string& out, std::span<const std::uint8_t> data, std::size_t sectorSize,
                      std::uint64_t firstSector, const std::optional<DiskGeometry>& geometry);

}  // namespace DaApi
