// The per-object blocks of the disk report: titles, the sector pass entry, the partition detail block,
// the file-system detail block and the error section's lines.
#pragma once

#include <ostream>
#include <string>

#include "core/da_api/disks_report_walk.h"

namespace DaApi::DisksReport {

// "Partition 0-1:", "MBR 0-*:", ... or, inside a volume group, "<container> volume <GUID>".
std::string ObjectTitle(const Place& place);

// "\r\n", the title and the object's sector dump (the line is left open).
void WriteSectorPassObject(std::ostream& out, const Place& place);

void WritePartitionDetail(std::ostream& out, const Place& place);
void WriteFileSystemDetail(std::ostream& out, const Place& place);

// The error-section lines (LF only) of the computer, the current disk-level object and the current object.
void WriteComputerError(std::ostream& out);
void WriteDiskError(std::ostream& out);
void WriteObjectError(std::ostream& out, const Place& place);

}  // namespace DaApi::DisksReport
