// Builds a disk's object list from its MBR, EBR chain or GPT (or, for a disk that cannot be read, from the
// operating system's partitions), then marks overlaps, objects past the end of the disk, and the unallocated
// gaps.
#include "core/disk/layout.h"

#include <algorithm>

#include "core/common/strings.h"
#include "core/disk/fs_probe.h"
#include "core/disk/gpt.h"
#include "core/disk/mbr.h"
#include "core/disk/partition_types.h"

namespace Disk {
namespace {

std::string Sectors(std::uint64_t first, std::uint64_t count) {
    return "sectors " + std::to_string(first) + "-" + std::to_string(count ? first + count - 1 : first);
}

DiskObject Partition(std::uint32_t number, std::uint64_t first, std::uint64_t count) {
    DiskObject object;
    object.kind = ObjectKind::kPartition;
    object.number = number;
    object.first = first;
    object.count = count;
    return object;
}

DiskObject Region(ObjectKind kind, std::uint64_t first, std::uint64_t count, MetadataKind metadata = MetadataKind::kNone) {
    DiskObject object;
    object.kind = kind;
    object.first = first;
    object.count = count;
    object.metadata = metadata;
    return object;
}

void FromMbrEntry(DiskObject& object, const MbrEntry& entry) {
    object.typeByte = entry.type;
    object.active = entry.status == 0x80;
    object.hidden = IsHiddenTypeByte(entry.type) ? 1 : 0;
}

// Sorting rank of objects that start at the same sector: tables before what they describe.
int Rank(ObjectKind kind) {
    switch (kind) {
    case ObjectKind::kMbr: return 0;
    case ObjectKind::kMetadata: return 1;
    case ObjectKind::kExtendedTable: return 2;
    default: return 3;
    }
}

// Sorts the objects into disk order and marks those that run past the end of the disk or overlap another.
void MarkProblems(DiskLayout& layout, std::uint64_t total) {
    auto& objects = layout.objects;
    for (DiskObject& object : objects) {
        if (object.End() <= total) continue;
        object.structureErrors |= kStructureReadError;
        object.issues.push_back({Problem::kPastEndOfDisk, "The object at " + Sectors(object.first, object.count) +
                                                              " extends past the last sector of the disk (" +
                                                              std::to_string(total - 1) + ")."});
    }
    std::stable_sort(objects.begin(), objects.end(), [](const DiskObject& a, const DiskObject& b) {
        return a.first != b.first ? a.first < b.first : Rank(a.kind) < Rank(b.kind);
    });
    // Each object is compared with the one that reaches furthest among those before it.
    std::size_t furthest = objects.size();
    for (std::size_t i = 0; i < objects.size(); ++i) {
        DiskObject& object = objects[i];
        if (object.count == 0) continue;
        if (furthest < objects.size() && object.first < objects[furthest].End()) {
            for (DiskObject* side : {&object, &objects[furthest]}) {
                if (side->structureErrors & kStructureOverlapping) continue;
                side->structureErrors |= kStructureOverlapping;
                side->issues.push_back({Problem::kOverlap, "The object at " + Sectors(side->first, side->count) +
                                                               " overlaps another object."});
            }
        }
        if (furthest == objects.size() || object.End() > objects[furthest].End()) furthest = i;
    }
}

void FillGaps(DiskLayout& layout, std::uint64_t total) {
    std::vector<DiskObject> filled;
    std::uint64_t cursor = 0;
    for (DiskObject& object : layout.objects) {
        if (object.first > cursor && cursor < total)
            filled.push_back(Region(ObjectKind::kUnallocated, cursor, std::min(object.first, total) - cursor));
        cursor = std::max(cursor, object.End());
        filled.push_back(std::move(object));
    }
    if (cursor < total) filled.push_back(Region(ObjectKind::kUnallocated, cursor, total - cursor));
    layout.objects = std::move(filled);
}

void ReadMbrLayout(SectorReader& disk, const Mbr& mbr, DiskLayout& layout) {
    layout.scheme = Scheme::kMbr;
    layout.mbrSignature = mbr.diskSignature;
    layout.objects.push_back(Region(ObjectKind::kMbr, 0, 1));
    std::uint32_t nextLogical = 5;
    for (std::uint32_t slot = 0; slot < mbr.entries.size(); ++slot) {
        const MbrEntry& entry = mbr.entries[slot];
        if (entry.Empty()) continue;
        if (!IsExtendedType(entry.type)) {
            DiskObject& object = layout.objects.emplace_back(Partition(slot + 1, entry.firstLba, entry.sectorCount));
            FromMbrEntry(object, entry);
            continue;
        }
        EbrChain chain = WalkEbrChain(disk, entry.firstLba, entry.sectorCount);
        for (EbrLink& link : chain.links) {
            DiskObject& table = layout.objects.emplace_back(Region(ObjectKind::kExtendedTable, link.sector, 1));
            table.typeByte = entry.type;
            if (!link.hasSignature) table.structureErrors |= kStructureNoSignature;
            table.issues = std::move(link.issues);
            if (!link.logical) continue;
            DiskObject& logical =
                layout.objects.emplace_back(Partition(nextLogical++, link.LogicalFirst(), link.logical->sectorCount));
            FromMbrEntry(logical, *link.logical);
            if (logical.End() > std::uint64_t{entry.firstLba} + entry.sectorCount)
                logical.issues.push_back({Problem::kExtendedOutside, "Logical partition " + std::to_string(logical.number) +
                                                                         " ends outside its extended partition."});
        }
        if (!chain.issues.empty()) {
            if (chain.links.empty()) {
                DiskObject& table = layout.objects.emplace_back(Region(ObjectKind::kExtendedTable, entry.firstLba, 1));
                table.typeByte = entry.type;
                table.structureErrors |= kStructureReadError;
                table.issues = std::move(chain.issues);
            } else {
                auto& last = *std::find_if(layout.objects.rbegin(), layout.objects.rend(),
                                           [](const DiskObject& o) { return o.kind == ObjectKind::kExtendedTable; });
                last.issues.insert(last.issues.end(), chain.issues.begin(), chain.issues.end());
            }
        }
    }
}

std::uint64_t ArraySectors(const GptHeader& header, std::uint32_t sectorSize) {
    return (header.EntryArrayBytes() + sectorSize - 1) / sectorSize;
}

void ReadGptLayout(SectorReader& disk, const GptRead& gpt, DiskLayout& layout) {
    const std::uint64_t total = disk.SectorCount();
    const std::uint32_t sectorSize = disk.SectorSize();
    layout.scheme = Scheme::kGpt;
    layout.objects.push_back(Region(ObjectKind::kMbr, 0, 1));

    // The primary region runs from the header at LBA 1 to the end of its entry array (the usual 16 KiB
    // array when no header says otherwise).
    const GptHeader* described = gpt.primary ? &*gpt.primary : gpt.used ? &*gpt.used : nullptr;
    const std::uint64_t arraySectors = described ? ArraySectors(*described, sectorSize) : (16384 + sectorSize - 1) / sectorSize;
    const std::uint64_t primaryEnd =
        std::min(total, gpt.primary ? gpt.primary->entriesLba + arraySectors : 2 + arraySectors);
    DiskObject& primary = layout.objects.emplace_back(
        Region(ObjectKind::kMetadata, 1, primaryEnd > 1 ? primaryEnd - 1 : 1, MetadataKind::kGptPrimary));
    if (!gpt.primaryProblem.empty())
        primary.issues.push_back({Problem::kGptPrimaryDamaged, "The primary GPT is damaged: " + gpt.primaryProblem + "."});

    if (!gpt.used) {
        layout.state = SchemeState::kCorrupted;
        layout.issues.push_back({Problem::kGptNoValidHeader, "Neither GPT header is valid."});
        return;
    }
    const GptHeader& used = *gpt.used;
    layout.diskGuid = used.diskGuid;

    if (primaryEnd < used.firstUsableLba)
        layout.objects.push_back(Region(ObjectKind::kMetadata, primaryEnd, used.firstUsableLba - primaryEnd));
    // The backup region is its entry array followed by its header on the last sector.
    const std::uint64_t backupStart = gpt.backup ? gpt.backup->entriesLba : total - 1 - std::min(total - 1, arraySectors);
    const std::uint64_t backupEnd = gpt.backup ? gpt.backup->myLba + 1 : total;
    if (backupStart > used.lastUsableLba + 1)
        layout.objects.push_back(
            Region(ObjectKind::kMetadata, used.lastUsableLba + 1, backupStart - used.lastUsableLba - 1));
    if (backupEnd > backupStart) {
        DiskObject& backup = layout.objects.emplace_back(
            Region(ObjectKind::kMetadata, backupStart, backupEnd - backupStart, MetadataKind::kGptBackup));
        if (!gpt.backupProblem.empty())
            backup.issues.push_back({Problem::kGptBackupDamaged, "The backup GPT is damaged: " + gpt.backupProblem + "."});
    }

    static const auto kBasicData = Guid::FromBytes(std::array<std::uint8_t, 16>{
        0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44, 0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7});
    for (const GptEntry& entry : gpt.entries) {
        const bool ordered = entry.lastLba >= entry.firstLba;
        DiskObject& object = layout.objects.emplace_back(
            Partition(entry.index + 1, entry.firstLba, ordered ? entry.lastLba - entry.firstLba + 1 : 0));
        object.typeGuid = entry.type;
        object.uniqueGuid = entry.unique;
        object.gptAttributes = entry.attributes;
        object.active = entry.attributes & kGptLegacyBootable;
        if (const auto type = LookUpGptType(entry.type)) object.typeByte = type->typeByte;
        // Bits 62 and 63 mean "hidden" and "no drive letter" for basic data partitions only.
        if (entry.type == kBasicData)
            object.hidden = entry.attributes & kGptHidden ? 1 : entry.attributes & kGptNoDriveLetter ? 2 : 0;
        if (!ordered)
            object.issues.push_back({Problem::kGptEntryInvalid, "GPT entry " + std::to_string(entry.index + 1) +
                                                                    " ends (" + std::to_string(entry.lastLba) +
                                                                    ") before it starts (" +
                                                                    std::to_string(entry.firstLba) + ")."});
        else if (entry.firstLba < used.firstUsableLba || entry.lastLba > used.lastUsableLba)
            object.issues.push_back({Problem::kGptEntryInvalid, "GPT entry " + std::to_string(entry.index + 1) +
                                                                    " lies outside the usable sectors " +
                                                                    std::to_string(used.firstUsableLba) + "-" +
                                                                    std::to_string(used.lastUsableLba) + "."});
    }
}

bool HasProtectiveEntry(const Mbr& mbr) {
    return mbr.hasSignature && std::any_of(mbr.entries.begin(), mbr.entries.end(),
                                           [](const MbrEntry& e) { return e.type == kGptProtectiveType; });
}

// A boot sector with a file system's parameter block also ends in 0x55 0xAA; such a disk has no table.
bool IsBootSectorFileSystem(FsType type) {
    switch (type) {
    case FsType::kFat16: case FsType::kFat32: case FsType::kExfat: case FsType::kNtfs: case FsType::kBitLocker:
    case FsType::kRefs: return true;
    default: return false;
    }
}

}  // namespace

DiskLayout ReadLayout(SectorReader& disk) {
    DiskLayout layout;
    const std::uint64_t total = disk.SectorCount();
    if (!IsSupportedSectorSize(disk.SectorSize())) {
        layout.state = SchemeState::kReadError;
        layout.issues.push_back({Problem::kUnsupportedSectorSize,
                                 "The sector size " + std::to_string(disk.SectorSize()) + " is not supported."});
        return layout;
    }
    if (total == 0) {
        layout.state = SchemeState::kReadError;
        layout.issues.push_back({Problem::kEmptyDisk, "The disk has no sectors."});
        return layout;
    }
    std::vector<std::uint8_t> sector;
    if (const auto error = disk.Read(0, 1, sector); error.Failed()) {
        layout.state = SchemeState::kReadError;
        layout.issues.push_back({Problem::kDiskReadFailed, "Sector 0 cannot be read: " + Common::WideToUtf8(error.Message())});
        return layout;
    }
    const std::optional<Mbr> decoded = DecodeMbr(sector);
    if (!decoded) {
        layout.state = SchemeState::kReadError;
        layout.issues.push_back({Problem::kDiskReadFailed, "Sector 0 is shorter than an MBR."});
        return layout;
    }
    const Mbr& mbr = *decoded;
    const GptRead gpt = ReadGpt(disk);
    const bool protective = HasProtectiveEntry(mbr);
    // A signed MBR without a 0xEE entry is a legacy MBR, and the disk an MBR disk whatever GPT it still
    // holds (UEFI standard 2.10, 5.2.3: only a protective MBR makes a disk a GPT disk).
    const bool legacyMbr = mbr.hasSignature && !protective;
    if (!legacyMbr && (gpt.used || protective || gpt.primarySignature)) {
        layout.gptAlsoMbr = protective;
        ReadGptLayout(disk, gpt, layout);
    } else {
        if (gpt.used)
            layout.issues.push_back({Problem::kGptBehindLegacyMbr,
                                     "A GPT is on the disk, but sector 0 holds a legacy MBR, so the MBR's partitions "
                                     "are shown."});
        VolumeReader whole(disk, 0, total);
        const ProbeResult probe = ProbeFileSystem(whole);
        const bool wholeDiskVolume = probe.outcome == ProbeOutcome::kFound &&
                                     (!mbr.hasSignature || IsBootSectorFileSystem(probe.info.type));
        if (mbr.hasSignature && !wholeDiskVolume) {
            ReadMbrLayout(disk, mbr, layout);
        } else {
            layout.scheme = Scheme::kRaw;
            layout.objects.push_back(wholeDiskVolume ? Partition(0, 0, total) : Region(ObjectKind::kUnallocated, 0, total));
        }
    }
    MarkProblems(layout, total);
    FillGaps(layout, total);
    return layout;
}

DiskLayout LayoutFromVolumes(const std::vector<VolumeFacts>& volumes, std::uint32_t sectorSize,
                             std::uint64_t totalSectors) {
    DiskLayout layout;
    layout.state = SchemeState::kReadError;
    layout.issues.push_back({Problem::kDeviceNotOpened, "The disk cannot be opened for reading; its partitions are "
                                                        "those the operating system reports."});
    if (sectorSize == 0) return layout;
    for (const VolumeFacts& volume : volumes) {
        if (volume.lengthBytes < sectorSize) continue;
        layout.objects.push_back(Partition(volume.osPartitionNumber.value_or(0), volume.offsetBytes / sectorSize,
                                           volume.lengthBytes / sectorSize));
    }
    MarkProblems(layout, totalSectors);
    return layout;
}

}  // namespace Disk
