// The printout of a partition-table sector (the MBR or an extended boot record): the boot manager's
// extension record, the disk signature and the four table entries.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace DaApi {

// Name of a partition type byte from the disk library's list; empty when unknown.
using TypeNameLookup = std::function<std::string(std::uint8_t typeByte)>;

// Appends "  Table extended structure" and what follows; nothing for fewer than 512 bytes.
void AppendPartitionTable(std::string& out, std::span<const std::uint8_t> sector, const TypeNameLookup& typeName);

}  // namespace DaApi
