// A disk's objects in disk order: the partition-table sector, partitions, extended tables, scheme metadata
// and the unallocated space between them, each with the problems found in its structure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/disk/block_device.h"
#include "core/disk/guid.h"
#include "core/disk/problems.h"

namespace Disk {

enum class Scheme : std::uint32_t { kNone, kRaw, kMbr, kGpt };
enum class SchemeState : std::uint32_t { kOk, kReadError, kCorrupted };
enum class ObjectKind : std::uint32_t { kMbr, kPartition, kExtendedTable, kUnallocated, kMetadata };
// The GPT copy a metadata region holds; kNone for space that no copy uses (the gap between an entry array
// and the usable sectors).
enum class MetadataKind : std::uint32_t { kNone = 0, kGptPrimary = 1, kGptBackup = 2 };

// Bits of DiskObject::structureErrors.
inline constexpr std::uint32_t kStructureOverlapping = 1;
inline constexpr std::uint32_t kStructureReadError = 2;
inline constexpr std::uint32_t kStructureNoSignature = 4;

struct DiskObject {
    ObjectKind kind = ObjectKind::kUnallocated;
    std::uint64_t first = 0;  // sectors
    std::uint64_t count = 0;
    std::uint32_t number = 0;  // 1-based partition number; 0 for other objects
    std::uint8_t typeByte = 0;
    std::optional<Guid> typeGuid;
    std::optional<Guid> uniqueGuid;
    std::uint64_t gptAttributes = 0;
    bool active = false;
    std::uint32_t hidden = 0;  // 0 visible, 1 hidden, 2 no drive letter
    MetadataKind metadata = MetadataKind::kNone;
    std::uint32_t structureErrors = 0;
    std::vector<Issue> issues;

    std::uint64_t End() const { return first + count; }
};

struct DiskLayout {
    Scheme scheme = Scheme::kNone;
    SchemeState state = SchemeState::kOk;
    bool gptAlsoMbr = false;  // sector 0 holds a protective or hybrid MBR
    std::optional<Guid> diskGuid;
    std::uint32_t mbrSignature = 0;
    std::vector<DiskObject> objects;
    std::vector<Issue> issues;  // of the disk itself
};

// Reads the partition scheme of `disk`. Never fails: what cannot be read shows as the state and issues.
DiskLayout ReadLayout(SectorReader& disk);

// The layout of a disk that cannot be read: the partitions the operating system reports (their numbers are
// the system's), in disk order, with no table, gap or file system of their own.
DiskLayout LayoutFromVolumes(const std::vector<VolumeFacts>& volumes, std::uint32_t sectorSize,
                             std::uint64_t totalSectors);

}  // namespace Disk
