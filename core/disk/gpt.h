// The GUID partition table: headers, entry arrays and their CRC-32 checks (UEFI standard, chapter 5.3).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/disk/block_device.h"
#include "core/disk/bytes.h"
#include "core/disk/guid.h"

namespace Disk {

struct GptHeader {
    std::uint32_t revision = 0;
    std::uint32_t headerSize = 0;
    std::uint64_t myLba = 0;
    std::uint64_t alternateLba = 0;
    std::uint64_t firstUsableLba = 0;
    std::uint64_t lastUsableLba = 0;
    Guid diskGuid;
    std::uint64_t entriesLba = 0;
    std::uint32_t entryCount = 0;
    std::uint32_t entrySize = 0;
    std::uint32_t entriesCrc = 0;

    std::uint64_t EntryArrayBytes() const { return std::uint64_t{entryCount} * entrySize; }
};

struct GptEntry {
    std::uint32_t index = 0;  // 0-based slot in the array
    Guid type;
    Guid unique;
    std::uint64_t firstLba = 0;
    std::uint64_t lastLba = 0;
    std::uint64_t attributes = 0;
    std::u16string name;
};

// Attribute bits: 2 is "legacy BIOS bootable"; 62 and 63 belong to basic data partitions.
inline constexpr std::uint64_t kGptLegacyBootable = 1ull << 2;
inline constexpr std::uint64_t kGptHidden = 1ull << 62;
inline constexpr std::uint64_t kGptNoDriveLetter = 1ull << 63;

// An entry array larger than this is not read: no real table comes near it, and a damaged count must not
// make the report read the whole disk.
inline constexpr std::uint64_t kMaxGptArrayBytes = 4u << 20;

// Checks the header in `sector`, read from `lba` of a disk of `diskSectors` sectors. On failure `why` says
// which rule was broken.
std::optional<GptHeader> DecodeGptHeader(Bytes sector, std::uint64_t lba, std::uint64_t diskSectors, std::string& why);

// The used entries of an array whose CRC the caller has checked (type GUID not zero).
std::vector<GptEntry> DecodeGptEntries(const GptHeader& header, Bytes array);

std::uint32_t Crc32(Bytes bytes);

// Both copies as found on a disk, and the one that is used.
struct GptRead {
    bool primarySignature = false;  // "EFI PART" at LBA 1, whether or not the rest is valid
    std::optional<GptHeader> primary;
    std::optional<GptHeader> backup;
    std::string primaryProblem;  // empty when the primary header and its array are sound
    std::string backupProblem;
    bool usesBackup = false;
    std::optional<GptHeader> used;
    std::vector<GptEntry> entries;
};

// Reads the primary header at LBA 1 and the backup at its alternate LBA (or the disk's last sector when
// the primary is unusable); uses the primary when its header and array check out, else the backup.
GptRead ReadGpt(SectorReader& disk);

}  // namespace Disk
