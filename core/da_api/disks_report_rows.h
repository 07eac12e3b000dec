// The row writers of the disk report's table and summary: each reads the current selection and writes
// its lines to the report's 8-bit stream.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "core/da_api/disks_report_walk.h"

namespace DaApi::DisksReport {

// `text`, then "\r\n" as a write of its own.
void WriteLine(std::ostream& out, std::string_view text);

// The table's rows.
void WriteDiskRow(std::ostream& out);
void WriteVolumeGroupRow(std::ostream& out);
void WriteVolumeRow(std::ostream& out, const Place& place);
void WritePartitionRow(std::ostream& out, const Place& place);

// The summary of the computer, and the properties block of the current disk.
void WriteComputerSummary(std::ostream& out);
void WriteDiskProperties(std::ostream& out);

// A volume label as 8-bit text: at most `maxLength` characters (the file system's longest label), each
// printed as itself when it is printable 8-bit text and as "." otherwise.
std::string LabelText(const std::u16string& label, std::uint64_t maxLength);
// The same, cut or padded with blanks to the table's 11 characters.
std::string LabelColumn(const std::u16string& label, std::uint64_t maxLength);

// The "ABCHSV" flag letters of the current object. Requests a file-system check first where one applies.
std::string FlagLetters();

}  // namespace DaApi::DisksReport
