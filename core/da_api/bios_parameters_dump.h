// The printout of the BIOS drive parameters of a disk: the fixed-disk parameter table and the results of
// the INT 13h extensions (version and support bitmap from function 41h, drive parameters from function 48h).
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace DaApi {

inline constexpr std::size_t kFixedDiskTableBytes = 16;
inline constexpr std::size_t kExtendedDriveParametersBytes = 26;

// "  BIOS HDPT properties:" and its lines; nothing for fewer than kFixedDiskTableBytes bytes.
void AppendFixedDiskTable(std::string& out, std::span<const std::uint8_t> table);

// "  BIOS extension properties:" and its lines; `version` is AH and `functions` CX as function 41h returns
// them; nothing for fewer than kExtendedDriveParametersBytes bytes of function 48h's result buffer.
void AppendBiosExtensions(std::string& out, std::uint8_t version, std::uint16_t functions,
                          std::span<const std::uint8_t> parameters);

}  // namespace DaApi
