// The master boot record's partition table and the chain of extended boot records behind it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "core/disk/block_device.h"
#include "core/disk/bytes.h"
#include "core/disk/problems.h"

namespace Disk {

// One 16-byte entry of a partition table at offset 446.
struct MbrEntry {
    std::uint8_t status = 0;  // 0x80 = active
    std::array<std::uint8_t, 3> chsFirst{};
    std::uint8_t type = 0;
    std::array<std::uint8_t, 3> chsLast{};
    std::uint32_t firstLba = 0;  // relative to the table's base
    std::uint32_t sectorCount = 0;

    bool Empty() const { return type == 0 || sectorCount == 0; }
};

struct Mbr {
    std::array<MbrEntry, 4> entries;
    std::uint32_t diskSignature = 0;  // offset 440
    bool hasSignature = false;        // 0x55 0xAA at 510
};

inline constexpr std::size_t kMbrBytes = 512;

// nullopt when `sector` is shorter than 512 bytes.
std::optional<Mbr> DecodeMbr(Bytes sector);

// 0x05 (CHS), 0x0F (LBA) and 0x85 (Linux) open an extended partition.
bool IsExtendedType(std::uint8_t type);
// 0xEE marks a GPT disk's protective (or hybrid) MBR.
inline constexpr std::uint8_t kGptProtectiveType = 0xEE;

// One link of the chain: an extended boot record and the logical partition it describes.
struct EbrLink {
    std::uint64_t sector = 0;
    bool hasSignature = false;
    std::optional<MbrEntry> logical;  // as stored: firstLba counts from `sector`

    std::uint64_t LogicalFirst() const { return sector + logical->firstLba; }
    std::vector<Issue> issues;
};

struct EbrChain {
    std::vector<EbrLink> links;
    // Problems that end the chain without a table to carry them (an unreadable next table).
    std::vector<Issue> issues;
};

// The chain of the extended partition [first, first + count): each table's first entry is a logical
// partition relative to that table, its second the next table relative to the extended partition's start.
// The walk stops at a table it has seen before, at a link that leaves the extended partition or the disk,
// at an unreadable or unsigned table, and after kMaxEbrLinks tables.
inline constexpr std::size_t kMaxEbrLinks = 256;
EbrChain WalkEbrChain(SectorReader& disk, std::uint64_t first, std::uint64_t count);

}  // namespace Disk
