// MBR partition table and EBR chain.
#include "core/disk/mbr.h"

#include <set>
#include <string>

namespace Disk {
namespace {

MbrEntry DecodeEntry(Bytes entry) {
    MbrEntry decoded;
    decoded.status = entry[0];
    decoded.chsFirst = {entry[1], entry[2], entry[3]};
    decoded.type = entry[4];
    decoded.chsLast = {entry[5], entry[6], entry[7]};
    decoded.firstLba = Le32(entry, 8);
    decoded.sectorCount = Le32(entry, 12);
    return decoded;
}

std::string At(std::uint64_t sector) { return " (table at sector " + std::to_string(sector) + ")"; }

}  // namespace

std::optional<Mbr> DecodeMbr(Bytes sector) {
    if (sector.size() < kMbrBytes) return std::nullopt;
    Mbr mbr;
    for (std::size_t i = 0; i < mbr.entries.size(); ++i) mbr.entries[i] = DecodeEntry(sector.subspan(446 + 16 * i, 16));
    mbr.diskSignature = Le32(sector, 440);
    mbr.hasSignature = sector[510] == 0x55 && sector[511] == 0xAA;
    return mbr;
}

bool IsExtendedType(std::uint8_t type) { return type == 0x05 || type == 0x0F || type == 0x85; }

EbrChain WalkEbrChain(SectorReader& disk, std::uint64_t first, std::uint64_t count) {
    EbrChain chain;
    std::set<std::uint64_t> seen;
    std::vector<std::uint8_t> sector;
    std::uint64_t next = first;
    while (true) {
        if (chain.links.size() == kMaxEbrLinks) {
            chain.issues.push_back({Problem::kTooManyTables, "The extended partition chain was cut after " +
                                                                 std::to_string(kMaxEbrLinks) + " tables."});
            break;
        }
        if (const auto error = disk.Read(next, 1, sector); error.Failed()) {
            chain.issues.push_back({Problem::kTableUnreadable, "The extended boot record at sector " +
                                                                   std::to_string(next) + " cannot be read."});
            break;
        }
        seen.insert(next);
        EbrLink& link = chain.links.emplace_back();
        link.sector = next;
        const auto table = DecodeMbr(sector);
        link.hasSignature = table && table->hasSignature;
        if (!link.hasSignature) {
            link.issues.push_back({Problem::kNoTableSignature, "The extended boot record has no signature" + At(next) + "."});
            break;
        }
        if (!table->entries[0].Empty()) link.logical = table->entries[0];
        const MbrEntry& onward = table->entries[1];
        if (onward.Empty() || !IsExtendedType(onward.type)) break;
        const std::uint64_t target = first + onward.firstLba;
        if (seen.count(target)) {
            link.issues.push_back({Problem::kExtendedLoop, "The extended boot record at sector " + std::to_string(next) +
                                                               " points back to the one at sector " +
                                                               std::to_string(target) + "."});
            break;
        }
        if (onward.firstLba >= count) {
            link.issues.push_back({Problem::kExtendedOutside, "The extended boot record at sector " +
                                                                  std::to_string(next) + " points to sector " +
                                                                  std::to_string(target) +
                                                                  ", outside the extended partition."});
            break;
        }
        next = target;
    }
    return chain;
}

}  // namespace Disk
