// Sector reads of the disk report: the leading sectors of the current object for the hex dump, and its
// first sector for the boot-sector and partition-table printouts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/da_api/sector_dump.h"

namespace DaApi::DisksReport {

// Every read of the report stays within this many bytes, whatever sector size or length is asked for.
inline constexpr std::size_t kReadBufferBytes = 64 * 1024;

// The current disk's CHS geometry, when it offers one.
std::optional<DiskGeometry> CurrentGeometry();

// Appends the sector dump of the current object: its sectors, " - No I/O disk" or " - Disk Read %s".
void AppendObjectDump(std::string& out);

// The first sector of the current object; nullopt (after a log line) when it cannot be read.
std::optional<std::vector<std::uint8_t>> ReadFirstSector();

}  // namespace DaApi::DisksReport
