// Boot code of an MBR or a partition boot sector named from a table of byte signatures, and the
// hidden-sectors field of a partition boot sector.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace BootCheck {

enum class SectorKind { Mbr, BootSector };

// "Windows NT 6+ MBR", "GRUB 2 MBR", "empty (zeroed code)", ..., or "unknown code, SHA-256 <64 hex digits>".
// `sector` is the whole first sector (at least 512 bytes; a shorter one is "unreadable").
std::string IdentifyBootCode(std::span<const std::uint8_t> sector, SectorKind kind);

// The BIOS parameter block's hidden-sectors field (the partition's start as the boot code believes it)
// of a FAT or NTFS boot sector; nothing for a sector without such a block.
std::optional<std::uint32_t> HiddenSectors(std::span<const std::uint8_t> sector);

}  // namespace BootCheck
