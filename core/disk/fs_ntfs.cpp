// NTFS: boot sector, the label from $Volume (MFT record 3) and the free count from $Bitmap (record 6).
// Layouts as published for NTFS 3.1: the boot sector's parameter block, FILE records with their update
// sequence arrays, resident and non-resident attributes with mapping pairs.
#include <algorithm>
#include <bit>

#include "core/disk/bytes.h"
#include "core/disk/fs_probe.h"

namespace Disk {
namespace {

constexpr std::uint32_t kAttrVolumeName = 0x60;
constexpr std::uint32_t kAttrData = 0x80;
constexpr std::uint32_t kAttrEnd = 0xFFFFFFFF;
constexpr std::uint64_t kVolumeRecord = 3;
constexpr std::uint64_t kBitmapRecord = 6;

struct NtfsLayout {
    std::uint32_t bytesPerSector = 0;
    std::uint64_t clusterBytes = 0;
    std::uint64_t totalSectors = 0;
    std::uint64_t mftCluster = 0;
    std::uint64_t recordBytes = 0;

    std::uint64_t TotalClusters() const { return totalSectors * bytesPerSector / clusterBytes; }
};

// Clusters per record (and per index buffer) are a signed byte: positive counts clusters, negative n means
// 2^-n bytes.
std::uint64_t SizeFromClusterByte(std::uint8_t raw, std::uint64_t clusterBytes) {
    const auto value = static_cast<std::int8_t>(raw);
    if (value > 0) return value * clusterBytes;
    if (value < -31 || value == 0) return 0;
    return std::uint64_t{1} << -value;
}

// Reads MFT record `number` and undoes its update sequence: the last two bytes of every 512-byte stride
// hold the sequence number, and the array after it holds the bytes they replaced.
bool ReadRecord(VolumeReader& volume, const NtfsLayout& layout, std::uint64_t number, std::vector<std::uint8_t>& record) {
    const std::uint64_t offset = layout.mftCluster * layout.clusterBytes + number * layout.recordBytes;
    if (!volume.TryRead(offset, static_cast<std::size_t>(layout.recordBytes), record)) return false;
    if (!HasMagic(record, 0, "FILE")) return false;
    const std::uint16_t usaOffset = Le16(record, 4);
    const std::uint16_t usaCount = Le16(record, 6);
    constexpr std::size_t kStride = 512;
    if (usaCount == 0 || usaOffset + std::size_t{usaCount} * 2 > record.size() || (usaCount - 1) * kStride > record.size())
        return false;
    const std::uint16_t sequence = Le16(record, usaOffset);
    for (std::size_t i = 1; i < usaCount; ++i) {
        const std::size_t end = i * kStride - 2;
        if (Le16(record, end) != sequence) return false;
        record[end] = record[usaOffset + 2 * i];
        record[end + 1] = record[usaOffset + 2 * i + 1];
    }
    return true;
}

// The first unnamed attribute of `type` in a record, as a span over its header and body.
std::optional<Bytes> FindAttribute(Bytes record, std::uint32_t type) {
    std::size_t at = Le16(record, 20);
    while (at + 16 <= record.size()) {
        const std::uint32_t attributeType = Le32(record, at);
        if (attributeType == kAttrEnd) break;
        const std::uint32_t length = Le32(record, at + 4);
        if (length < 16 || length > record.size() - at) break;
        const std::uint8_t nameLength = record[at + 9];
        if (attributeType == type && nameLength == 0) return record.subspan(at, length);
        at += length;
    }
    return std::nullopt;
}

std::optional<Bytes> ResidentValue(Bytes attribute) {
    if (attribute[8] != 0 || attribute.size() < 24) return std::nullopt;
    const std::uint32_t length = Le32(attribute, 16);
    const std::uint16_t offset = Le16(attribute, 20);
    if (offset > attribute.size() || length > attribute.size() - offset) return std::nullopt;
    return attribute.subspan(offset, length);
}

struct Run {
    std::uint64_t lcn = 0;  // 0 with sparse = true for a hole
    std::uint64_t clusters = 0;
    bool sparse = false;
};

// Mapping pairs: a header byte whose low nibble sizes the run length and high nibble the signed LCN delta.
std::optional<std::vector<Run>> DecodeRuns(Bytes attribute) {
    if (attribute[8] == 0 || attribute.size() < 64) return std::nullopt;
    std::size_t at = Le16(attribute, 32);
    std::vector<Run> runs;
    std::int64_t lcn = 0;
    while (at < attribute.size() && attribute[at] != 0) {
        const std::size_t lengthBytes = attribute[at] & 0x0F;
        const std::size_t offsetBytes = attribute[at] >> 4;
        if (lengthBytes == 0 || lengthBytes > 8 || offsetBytes > 8 || at + 1 + lengthBytes + offsetBytes > attribute.size())
            return std::nullopt;
        std::uint64_t length = 0;
        for (std::size_t i = 0; i < lengthBytes; ++i) length |= std::uint64_t{attribute[at + 1 + i]} << (8 * i);
        std::uint64_t delta = 0;
        for (std::size_t i = 0; i < offsetBytes; ++i) delta |= std::uint64_t{attribute[at + 1 + lengthBytes + i]} << (8 * i);
        if (offsetBytes && offsetBytes < 8 && (delta >> (8 * offsetBytes - 1)) & 1) delta |= ~0ull << (8 * offsetBytes);
        Run run;
        run.clusters = length;
        if (offsetBytes == 0) {
            run.sparse = true;
        } else {
            lcn += static_cast<std::int64_t>(delta);
            if (lcn < 0) return std::nullopt;
            run.lcn = static_cast<std::uint64_t>(lcn);
        }
        runs.push_back(run);
        at += 1 + lengthBytes + offsetBytes;
    }
    return runs;
}

// Counts the set bits of the first `clusters` bits of $Bitmap's data.
std::optional<std::uint64_t> CountUsedClusters(VolumeReader& volume, const NtfsLayout& layout, Bytes data) {
    const auto runs = DecodeRuns(data);
    if (!runs) return std::nullopt;
    const std::uint64_t clusters = layout.TotalClusters();
    std::uint64_t seen = 0;
    std::uint64_t used = 0;
    std::vector<std::uint8_t> chunk;
    constexpr std::uint64_t kChunkBytes = 1u << 20;
    for (const Run& run : *runs) {
        const std::uint64_t runBytes = run.clusters * layout.clusterBytes;
        for (std::uint64_t done = 0; done < runBytes && seen < clusters; done += kChunkBytes) {
            const auto length = static_cast<std::size_t>(std::min(kChunkBytes, runBytes - done));
            if (run.sparse) chunk.assign(length, 0);
            else if (!volume.TryRead(run.lcn * layout.clusterBytes + done, length, chunk)) return std::nullopt;
            for (std::size_t i = 0; i < chunk.size() && seen < clusters; ++i) {
                const std::uint64_t bits = std::min<std::uint64_t>(8, clusters - seen);
                used += std::popcount(static_cast<unsigned>(chunk[i] & ((1u << bits) - 1)));
                seen += bits;
            }
        }
    }
    if (seen < clusters) return std::nullopt;
    return used;
}

}  // namespace

ProbeResult ProbeNtfs(VolumeReader& volume) {
    std::vector<std::uint8_t> sector;
    if (!volume.TryRead(0, 512, sector) || !HasMagic(sector, 3, "NTFS    ")) return ProbeResult::NotThisFormat();
    NtfsLayout layout;
    layout.bytesPerSector = Le16(sector, 11);
    if (layout.bytesPerSector < 256 || layout.bytesPerSector > 4096 || !std::has_single_bit(layout.bytesPerSector))
        return ProbeResult::Failed("bytes per sector " + std::to_string(layout.bytesPerSector));
    // Sectors per cluster above 0x80 is a negative shift (2^(256 - value)), as used for clusters over 64 KiB.
    const std::uint8_t spc = sector[13];
    const std::uint64_t sectorsPerCluster = spc <= 0x80 ? spc : spc >= 0xF4 ? std::uint64_t{1} << (256 - spc) : 0;
    if (sectorsPerCluster == 0 || !std::has_single_bit(sectorsPerCluster))
        return ProbeResult::Failed("sectors per cluster " + std::to_string(spc));
    layout.clusterBytes = sectorsPerCluster * layout.bytesPerSector;
    layout.totalSectors = Le64(sector, 40);
    layout.mftCluster = Le64(sector, 48);
    layout.recordBytes = SizeFromClusterByte(sector[64], layout.clusterBytes);
    if (layout.recordBytes < 512 || layout.recordBytes > 65536 || !std::has_single_bit(layout.recordBytes))
        return ProbeResult::Failed("MFT record size out of range");
    if (layout.totalSectors == 0 || layout.TotalClusters() == 0) return ProbeResult::Failed("zero total sectors");

    FileSystemInfo info;
    info.type = FsType::kNtfs;
    info.sizeBytes = layout.totalSectors * layout.bytesPerSector;
    info.blockBytes = static_cast<std::uint32_t>(layout.clusterBytes);
    info.blockCount = layout.TotalClusters();
    info.serial.assign(sector.begin() + 72, sector.begin() + 80);

    std::vector<std::uint8_t> record;
    if (ReadRecord(volume, layout, kVolumeRecord, record))
        if (const auto name = FindAttribute(record, kAttrVolumeName))
            if (const auto value = ResidentValue(*name)) info.label = LabelFromUtf16Le(*value);
    // The bitmap is counted only for a volume that fits its partition: a damaged size must not make the
    // count run over clusters that do not exist.
    if (info.sizeBytes <= volume.Size() && ReadRecord(volume, layout, kBitmapRecord, record))
        if (const auto data = FindAttribute(record, kAttrData))
            if (const auto used = CountUsedClusters(volume, layout, *data); used && *used <= info.blockCount)
                info.freeBlocks = info.blockCount - *used;
    return ProbeResult::Found(std::move(info));
}

}  // namespace Disk
