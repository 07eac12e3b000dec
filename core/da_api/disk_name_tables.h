// The name tables of the disk report: file-system types, partition schemes, scheme states and containers,
// disk interfaces, firmware and operating-system kinds.
#pragma once

#include <cstdint>
#include <string>

namespace DaApi {

// File-system type code (property 137); `fatBits` is the FAT bit width (property 315), which tells FAT12
// from FAT16 under the shared code 14.
std::string FileSystemName(std::uint64_t type, std::uint64_t fatBits);

// Partition-scheme kind (property 305); `alsoMbr` is property 52 (a GPT disk with a protective or hybrid MBR).
std::string SchemeName(std::uint64_t kind, bool alsoMbr);

// Scheme-state or container code (property 309 or 219); `typeByteThroughScheme` is property 308.
std::string SchemeStateName(std::uint64_t code, std::uint64_t typeByteThroughScheme);

// The PS column of a disk: the scheme state when it is non-zero, else the scheme kind.
std::string DiskSchemeColumn(std::uint64_t state, std::uint64_t kind, bool alsoMbr, std::uint64_t typeByteThroughScheme);

// Interface type (property 282); empty for 0 and for values past the table.
std::string InterfaceName(std::uint64_t type);

// Firmware kind (property 239) and operating-system kind (property 176); "Unknown" for values not listed.
std::string FirmwareName(std::uint64_t kind);
std::string OperatingSystemName(std::uint64_t kind);

}  // namespace DaApi
