// The partition part of the boot configuration report: the root listing, the boot files, the boot manager's
// folder, over a mounted volume's directories.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/disk/mounted_volume.h"

namespace DaApi::Ksx {

// At most this much of each file is copied into the report; a longer file is cut, and the text says so.
inline constexpr std::uint64_t kMaxFileBytes = 256 * 1024;

// Plain text is written as it is; anything else byte by byte as "%02X ". A file is plain text when it holds no
// control character but TAB, LF and CR: bytes from 0x80 on pass (boot.ini and its kind are in the system's
// ANSI code page), while NUL (UTF-16 text, executables, hives) and DEL make it binary.
bool IsPlainText(std::string_view bytes);

// The entry named `name` (matched as FAT and NTFS match names: ASCII letters in either case) that is a
// directory or a file as asked.
std::optional<Disk::VolumeEntry> FindEntry(const std::vector<Disk::VolumeEntry>& entries, std::string_view name,
                                           bool directory);

// Appends the root listing, each boot file of the root in list order, and the boot manager's folder with
// its files. What cannot be listed or read is logged and left out (a file that cannot be read gets a
// "Read error" line between its start and end lines).
void WriteVolumeContent(Disk::VolumeDirectory& root, std::string& out);

}  // namespace DaApi::Ksx
