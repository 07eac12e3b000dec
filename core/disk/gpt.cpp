// GPT header and entry-array decoding with the CRC-32 checks of UEFI standard 2.10, 5.3.2.
#include "core/disk/gpt.h"

#include <zlib.h>

#include <bit>

namespace Disk {
namespace {

constexpr std::size_t kMinHeaderSize = 92;

// Reads the entry array of `header` and checks its CRC; returns the problem, or empty.
std::string ReadEntryArray(SectorReader& disk, const GptHeader& header, std::vector<std::uint8_t>& array) {
    const std::uint64_t bytes = header.EntryArrayBytes();
    const std::uint64_t sectors = (bytes + disk.SectorSize() - 1) / disk.SectorSize();
    if (const auto error = disk.Read(header.entriesLba, static_cast<std::uint32_t>(sectors), array); error.Failed())
        return "its partition entry array cannot be read";
    array.resize(static_cast<std::size_t>(bytes));
    if (Crc32(array) != header.entriesCrc) return "the CRC-32 of its partition entry array is wrong";
    return {};
}

// Reads and checks the header at `lba`, then its array.
std::optional<GptHeader> ReadCopy(SectorReader& disk, std::uint64_t lba, std::string& problem,
                                  std::vector<std::uint8_t>& array, bool* signature = nullptr) {
    std::vector<std::uint8_t> sector;
    if (lba >= disk.SectorCount() || disk.Read(lba, 1, sector).Failed()) {
        problem = "the header at sector " + std::to_string(lba) + " cannot be read";
        return std::nullopt;
    }
    if (signature) *signature = HasMagic(sector, 0, "EFI PART");
    std::string why;
    auto header = DecodeGptHeader(sector, lba, disk.SectorCount(), why);
    if (!header) {
        problem = "the header at sector " + std::to_string(lba) + " is invalid: " + why;
        return std::nullopt;
    }
    problem = ReadEntryArray(disk, *header, array);
    return header;
}

}  // namespace

std::uint32_t Crc32(Bytes bytes) {
    uLong crc = crc32(0L, Z_NULL, 0);
    while (!bytes.empty()) {
        const auto chunk = static_cast<uInt>(std::min<std::size_t>(bytes.size(), 1u << 30));
        crc = crc32(crc, bytes.data(), chunk);
        bytes = bytes.subspan(chunk);
    }
    return static_cast<std::uint32_t>(crc);
}

std::optional<GptHeader> DecodeGptHeader(Bytes sector, std::uint64_t lba, std::uint64_t diskSectors, std::string& why) {
    if (sector.size() < kMinHeaderSize || !HasMagic(sector, 0, "EFI PART")) {
        why = "no \"EFI PART\" signature";
        return std::nullopt;
    }
    GptHeader header;
    header.revision = Le32(sector, 8);
    header.headerSize = Le32(sector, 12);
    // HeaderSize must be at least 92 and at most the logical block size.
    if (header.headerSize < kMinHeaderSize || header.headerSize > sector.size()) {
        why = "header size " + std::to_string(header.headerSize) + " out of range";
        return std::nullopt;
    }
    // HeaderCRC32 covers HeaderSize bytes with the CRC field itself taken as zero.
    std::vector<std::uint8_t> copy(sector.begin(), sector.begin() + header.headerSize);
    std::fill_n(copy.begin() + 16, 4, std::uint8_t{0});
    if (Crc32(copy) != Le32(sector, 16)) {
        why = "header CRC-32 mismatch";
        return std::nullopt;
    }
    header.myLba = Le64(sector, 24);
    header.alternateLba = Le64(sector, 32);
    header.firstUsableLba = Le64(sector, 40);
    header.lastUsableLba = Le64(sector, 48);
    header.diskGuid = Guid::FromBytes(sector.subspan(56, 16));
    header.entriesLba = Le64(sector, 72);
    header.entryCount = Le32(sector, 80);
    header.entrySize = Le32(sector, 84);
    header.entriesCrc = Le32(sector, 88);
    // MyLBA must be the LBA the header was read from.
    if (header.myLba != lba) {
        why = "MyLBA " + std::to_string(header.myLba) + " is not " + std::to_string(lba);
        return std::nullopt;
    }
    // SizeOfPartitionEntry is 128 multiplied by a power of two.
    if (header.entrySize < 128 || header.entrySize % 128 != 0 || !std::has_single_bit(header.entrySize / 128)) {
        why = "entry size " + std::to_string(header.entrySize) + " is not 128 times a power of two";
        return std::nullopt;
    }
    if (header.EntryArrayBytes() > kMaxGptArrayBytes) {
        why = "entry array of " + std::to_string(header.EntryArrayBytes()) + " bytes is too large";
        return std::nullopt;
    }
    const std::uint64_t arraySectors = (header.EntryArrayBytes() + sector.size() - 1) / sector.size();
    if (header.entriesLba == 0 || header.entriesLba >= diskSectors || arraySectors > diskSectors - header.entriesLba) {
        why = "entry array outside the disk";
        return std::nullopt;
    }
    if (header.firstUsableLba > header.lastUsableLba + 1 || header.lastUsableLba >= diskSectors) {
        why = "usable range " + std::to_string(header.firstUsableLba) + "-" + std::to_string(header.lastUsableLba) +
              " does not fit the disk";
        return std::nullopt;
    }
    return header;
}

std::vector<GptEntry> DecodeGptEntries(const GptHeader& header, Bytes array) {
    std::vector<GptEntry> entries;
    for (std::uint32_t i = 0; i < header.entryCount; ++i) {
        const std::uint64_t offset = std::uint64_t{i} * header.entrySize;
        if (offset + 128 > array.size()) break;
        const Bytes raw = array.subspan(static_cast<std::size_t>(offset), 128);
        GptEntry entry;
        entry.type = Guid::FromBytes(raw.subspan(0, 16));
        if (entry.type.IsZero()) continue;
        entry.index = i;
        entry.unique = Guid::FromBytes(raw.subspan(16, 16));
        entry.firstLba = Le64(raw, 32);
        entry.lastLba = Le64(raw, 40);
        entry.attributes = Le64(raw, 48);
        for (std::size_t c = 56; c + 1 < 128; c += 2) {
            const char16_t unit = Le16(raw, c);
            if (unit == 0) break;
            entry.name.push_back(unit);
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

GptRead ReadGpt(SectorReader& disk) {
    GptRead gpt;
    std::vector<std::uint8_t> primaryArray;
    std::vector<std::uint8_t> backupArray;
    gpt.primary = ReadCopy(disk, 1, gpt.primaryProblem, primaryArray, &gpt.primarySignature);
    const std::uint64_t last = disk.SectorCount() ? disk.SectorCount() - 1 : 0;
    std::uint64_t backupLba = last;
    if (gpt.primary && gpt.primary->alternateLba > 1 && gpt.primary->alternateLba <= last)
        backupLba = gpt.primary->alternateLba;
    if (backupLba > 1) gpt.backup = ReadCopy(disk, backupLba, gpt.backupProblem, backupArray);
    else gpt.backupProblem = "there is no room for a backup header";

    if (gpt.primary && gpt.primaryProblem.empty()) {
        gpt.used = gpt.primary;
        gpt.entries = DecodeGptEntries(*gpt.primary, primaryArray);
    } else if (gpt.backup && gpt.backupProblem.empty()) {
        gpt.used = gpt.backup;
        gpt.usesBackup = true;
        gpt.entries = DecodeGptEntries(*gpt.backup, backupArray);
    }
    return gpt;
}

}  // namespace Disk
