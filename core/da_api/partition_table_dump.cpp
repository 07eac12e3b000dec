// Partition-table sector printout.
//
// Layout of a table sector (little-endian):
//   0x1A0  u32     extended boot sector: the sector the boot manager chains to
//   0x1A4  u8[8]   extended hidden partitions: type bytes the boot manager hides, 0 = unused slot
//   0x1AC  u8      extended boot disk: BIOS drive number to boot
//   0x1AD  u8      extended patch flags: bit 0 FAT16, bit 1 MS-DOS 7+, bit 2 FAT32, bit 3 OS/2
//   0x1AE  u8      extended OS/2 patch
//   0x1AF  u8[7]   reserved
//   0x1B6  u8      extended size: the record's length, 24 for this layout
//   0x1B7  u8      extended checksum: makes the 8-bit sum of 0x1A0..0x1B7 zero
//   0x1B8  u32     NT disk signature
//   0x1BC  u16     extended serial number
//   0x1BE  4 x 16  partition entries: boot flag, start CHS, type, end CHS, start LBA, sector count
//   0x1FE  u16     boot signature 0xAA55
// The record 0x1A0..0x1B7 lives in the boot code area; a sector written without the boot manager holds
// zeros or code there, which the checksum and size lines make visible.
#include "core/da_api/partition_table_dump.h"

#include "core/da_api/le_bytes.h"
#include "core/da_api/report_printf.h"

namespace DaApi {
namespace {

constexpr std::size_t kRecordOffset = 0x1A0;
constexpr std::size_t kRecordSize = 24;
constexpr std::size_t kHiddenOffset = 0x1A4;
constexpr std::size_t kHiddenSlots = 8;
constexpr std::size_t kBootDiskOffset = 0x1AC;
constexpr std::size_t kPatchFlagsOffset = 0x1AD;
constexpr std::size_t kOs2PatchOffset = 0x1AE;
constexpr std::size_t kSizeOffset = 0x1B6;
constexpr std::size_t kChecksumOffset = 0x1B7;
constexpr std::size_t kDiskSignatureOffset = 0x1B8;
constexpr std::size_t kSerialOffset = 0x1BC;
constexpr std::size_t kEntriesOffset = 0x1BE;
constexpr std::size_t kEntrySize = 16;
constexpr std::size_t kEntryCount = 4;
constexpr std::size_t kSignatureOffset = 0x1FE;

// Hidden-partition lines after the first start below the first one's value.
constexpr const char* kContinuation = "                                ";

void Line(std::string& out, const std::string& text) {
    out += text;
    out += "\r\n";
}

std::string TypeWithName(std::uint8_t type, const TypeNameLookup& typeName) {
    std::string text = Printf("%02X", type);
    std::string name = typeName ? typeName(type) : std::string();
    if (!name.empty()) text += " (" + name + ")";
    return text;
}

char Flag(std::uint8_t flags, unsigned bit) { return (flags >> bit) & 1 ? '+' : '-'; }

// The "f" column: "A" for an active entry (0x80), "-" for 0, "?" for a value no loader accepts.
char BootFlag(std::uint8_t flag) { return flag == 0x80 ? 'A' : flag == 0 ? '-' : '?'; }

struct Chs {
    unsigned cylinder;
    unsigned head;
    unsigned sector;
};

// The packed CHS triple of an entry: head, then sector in bits 0-5 with cylinder bits 8-9 in bits 6-7,
// then cylinder bits 0-7.
Chs UnpackChs(std::span<const std::uint8_t> bytes) {
    return {static_cast<unsigned>((bytes[1] & 0xC0) << 2 | bytes[2]), bytes[0], static_cast<unsigned>(bytes[1] & 0x3F)};
}

}  // namespace

void AppendPartitionTable(std::string& out, std::span<const std::uint8_t> s, const TypeNameLookup& typeName) {
    if (s.size() < 512) return;
    Line(out, "  Table extended structure");
    Line(out, Printf("    Extended boot sector:       %u", Le32(s, kRecordOffset)));

    out += "    Extended hidden partitions: ";
    bool first = true;
    for (std::size_t i = 0; i < kHiddenSlots; ++i) {
        std::uint8_t type = s[kHiddenOffset + i];
        if (type == 0) continue;
        if (!first) out += "\r\n" + std::string(kContinuation);
        out += TypeWithName(type, typeName);
        first = false;
    }
    out += "\r\n";

    std::uint8_t flags = s[kPatchFlagsOffset];
    Line(out, Printf("    Extended boot disk:         0x%02X", s[kBootDiskOffset]));
    Line(out, Printf("    Extended patch flags:       FAT16(%c) MS-DOS7+(%c) FAT32(%c) OS/2(%c)", Flag(flags, 0),
                     Flag(flags, 1), Flag(flags, 2), Flag(flags, 3)));
    Line(out, Printf("    Extended OS/2 patch:        0x%02X", s[kOs2PatchOffset]));
    std::uint8_t sum = 0;
    for (std::size_t i = kRecordOffset; i < kChecksumOffset; ++i) sum = static_cast<std::uint8_t>(sum + s[i]);
    Line(out, Printf("    Extended checksum (0x%02X):   0x%02X", static_cast<std::uint8_t>(-sum), s[kChecksumOffset]));
    Line(out, Printf("    Extended size (%02u):         %u", static_cast<unsigned>(kRecordSize), s[kSizeOffset]));
    Line(out, Printf("    NT signature:               0x%08X", Le32(s, kDiskSignatureOffset)));
    Line(out, Printf("    Extended serial number:     0x%04X", Le16(s, kSerialOffset)));

    Line(out, "  i f    Start C   H  S      End C   H  S      Start       Size Type");
    Line(out, "  - - ---------- --- -- ---------- --- -- ---------- ---------- ----");
    for (std::size_t i = 0; i < kEntryCount; ++i) {
        std::span<const std::uint8_t> entry = s.subspan(kEntriesOffset + i * kEntrySize, kEntrySize);
        Chs start = UnpackChs(entry.subspan(1, 3));
        Chs end = UnpackChs(entry.subspan(5, 3));
        Line(out, Printf("  %c %c %10u %3u %2u %10u %3u %2u %10u %10u ", static_cast<char>('1' + i), BootFlag(entry[0]),
                         start.cylinder, start.head, start.sector, end.cylinder, end.head, end.sector, Le32(entry, 8),
                         Le32(entry, 12)) +
                      TypeWithName(entry[4], typeName));
    }
    Line(out, Printf("    Boot sign (0x0AA55):        0x%04X", Le16(s, kSignatureOffset)));
}

}  // namespace DaApi
