// The decoded printouts of FAT12/16, FAT32 and NTFS boot sectors (BIOS parameter blocks).
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace DaApi {

enum class BootSectorLayout { kNone, kFat16, kFat32, kNtfs };

// Which printout an object gets: by its file-system type (property 137) when one was recognised, else by
// its partition type byte (property 117) and the file-system type that byte stands for in the disk
// library's type list (14 for a FAT12/16 byte, 15 for a FAT32 byte).
BootSectorLayout ChooseBootSectorLayout(std::uint64_t fileSystemType, std::uint64_t typeByte,
                                        std::uint64_t typeByteFileSystem);

// The smallest sector the printouts read (they reach offset 511).
inline constexpr std::size_t kBootSectorBytes = 512;

// Appends the printout of `sector`; nothing for kNone or for fewer than kBootSectorBytes bytes.
void AppendBootSector(std::string& out, BootSectorLayout layout, std::span<const std::uint8_t> sector);

}  // namespace DaApi
