// Boot-sector printouts. Field offsets are those of the FAT boot sector and BPB (Microsoft's FAT
// standard, "Boot Sector and BPB") and of the NTFS boot sector; all fields are little-endian.
#include "core/da_api/boot_sector_dump.h"

#include "core/da_api/le_bytes.h"
#include "core/da_api/report_printf.h"

namespace DaApi {
namespace {

constexpr std::uint64_t kFsHpfs = 13;
constexpr std::uint64_t kFsFat = 14;
constexpr std::uint64_t kFsFat32 = 15;
constexpr std::uint64_t kFsNtfs = 10;
constexpr std::uint64_t kTypeByteNtfs = 7;

using Bytes = std::span<const std::uint8_t>;

class Printer {
public:
    Printer(std::string& out, Bytes sector) : out_(out), s_(sector) {}

    void Line(const std::string& text) {
        out_ += text;
        out_ += "\r\n";
    }
    // An OEM name or label: full width, control bytes as ".".
    void Text(const char* label, std::size_t offset, std::size_t width) {
        out_ += label;
        for (std::size_t i = 0; i < width; ++i) out_ += s_[offset + i] < 32 ? '.' : static_cast<char>(s_[offset + i]);
        out_ += "\r\n";
    }
    unsigned U8(std::size_t offset) const { return s_[offset]; }
    unsigned U16(std::size_t offset) const { return Le16(s_, offset); }
    std::uint32_t U32(std::size_t offset) const { return Le32(s_, offset); }
    unsigned long long U64(std::size_t offset) const { return Le64(s_, offset); }
    int S8(std::size_t offset) const { return static_cast<std::int8_t>(s_[offset]); }

private:
    std::string& out_;
    Bytes s_;
};

void CommonBlock(Printer& p) {
    p.Line(Printf("    Jump code:               0x%02X 0x%02X 0x%02X", p.U8(0), p.U8(1), p.U8(2)));
    p.Text("    OEM ID:                  ", 3, 8);
    p.Line(Printf("    Sector size (512):       %u", p.U16(11)));
    p.Line(Printf("    Sectors per cluster:     %u", p.U8(13)));
    p.Line(Printf("    Reserved sectors:        %u", p.U16(14)));
    p.Line(Printf("    FAT copies:              %u", p.U8(16)));
    p.Line(Printf("    Root folder items:       %u", p.U16(17)));
    p.Line(Printf("    Total sectors:           %u", p.U16(19)));
    p.Line(Printf("    Media ID:                0x%02X", p.U8(21)));
    p.Line(Printf("    FAT size:                %u", p.U16(22)));
    p.Line(Printf("    Sectors per track:       %u", p.U16(24)));
    p.Line(Printf("    Number of heads:         %u", p.U16(26)));
    p.Line(Printf("    Hidden sectors:          %u", p.U32(28)));
    p.Line(Printf("    Big total sectors:       %u", p.U32(32)));
}

void Fat16(Printer& p) {
    p.Line("  FAT16 bootsector structure:");
    CommonBlock(p);
    p.Line(Printf("    Hard disk:               0x%02X", p.U8(36)));
    p.Line(Printf("    OS/2 letter:             0x%02X", p.U8(37)));
    p.Line(Printf("    Extension signature:     0x%02X", p.U8(38)));
    p.Line(Printf("    Serial number:           %04X-%04X", p.U16(41), p.U16(39)));
    p.Text("    Volume label:            ", 43, 11);
    p.Text("    File system name:        ", 54, 8);
    p.Line(Printf("    Boot signature (0AA55h): 0x%04X", p.U16(510)));
}

void Fat32(Printer& p) {
    p.Line("  FAT32 bootsector structure:");
    CommonBlock(p);
    p.Line(Printf("    FAT size:                %u", p.U32(36)));
    p.Line(Printf("    Flags:                   0x%04X", p.U16(40)));
    p.Line(Printf("    File system version:     %u.%u", p.U8(43), p.U8(42)));
    p.Line(Printf("    First cluster of root:   %u", p.U32(44)));
    p.Line(Printf("    FS info sector (1):      %u", p.U16(48)));
    p.Line(Printf("    Backup sector (6):       %u", p.U16(50)));
    p.Line(Printf("    Reserved:                0x%08X 0x%08X 0x%08X", p.U32(52), p.U32(56), p.U32(60)));
    p.Line(Printf("    Hard disk:               0x%02X", p.U8(64)));
    p.Line(Printf("    Reserved:                0x%02X", p.U8(65)));
    p.Line(Printf("    Extension signature:     0x%02X", p.U8(66)));
    p.Line(Printf("    Serial number:           %04X-%04X", p.U16(69), p.U16(67)));
    p.Text("    Volume label:            ", 71, 11);
    p.Text("    File system name:        ", 82, 8);
    // The 32-bit word at 508 takes in the two bytes before the signature, so a healthy sector shows
    // 0xAA55 in the upper half; the width is kept as it has always been printed.
    p.Line(Printf("    Boot signature (0AA55h): 0x%08X", p.U32(508)));

    // The counts are 32-bit, wrapping as they always have for damaged parameter blocks.
    std::uint32_t sectorSize = p.U16(11);
    std::uint32_t sectorsPerCluster = p.U8(13);
    std::uint32_t fatSize = p.U32(36);
    std::uint32_t fromFat = sectorSize / 4 * fatSize - 2;
    std::uint32_t fromData =
        sectorsPerCluster == 0 ? 0 : (p.U32(32) - p.U8(16) * fatSize - p.U16(14)) / sectorsPerCluster;
    p.Line("");
    p.Line("");
    p.Line(Printf("  Clusters from FAT:  %10u", fromFat));
    p.Line(Printf("  Clusters from Data: %10u", fromData));
}

void Ntfs(Printer& p) {
    p.Line("  NTFS bootsector structure:");
    p.Line(Printf("    Jump code:               0x%02X 0x%02X 0x%02X", p.U8(0), p.U8(1), p.U8(2)));
    p.Text("    File system name:        ", 3, 8);
    p.Line(Printf("    Sector size (512):       %u", p.U16(11)));
    p.Line(Printf("    Sectors per cluster:     %u", p.U8(13)));
    p.Line(Printf("    Reserved sectors (0):    %u", p.U16(14)));
    p.Line(Printf("    FAT copies (0):          %u", p.U8(16)));
    p.Line(Printf("    Root folder items (0):   %u", p.U16(17)));
    p.Line(Printf("    Total sectors (0):       %u", p.U16(19)));
    p.Line(Printf("    Media ID:                0x%02X", p.U8(21)));
    p.Line(Printf("    FAT size (0):            %u", p.U16(22)));
    p.Line(Printf("    Sectors per track:       %u", p.U16(24)));
    p.Line(Printf("    Number of heads:         %u", p.U16(26)));
    p.Line(Printf("    Hidden sectors:          %u", p.U32(28)));
    p.Line(Printf("    Big total sectors (0):   %u", p.U32(32)));
    p.Line(Printf("    Hard disk:               0x%02X", p.U8(36)));
    p.Line(Printf("    Reserved:                0x%02X 0x%04X", p.U8(37), p.U16(38)));
    p.Line(Printf("    Big total sectors:       %llu", p.U64(40)));
    p.Line(Printf("    MFT cluster:             %llu", p.U64(48)));
    p.Line(Printf("    MFTmirr cluster:         %llu", p.U64(56)));
    // Raw signed bytes: a negative value n stands for 2^-n bytes rather than clusters.
    p.Line(Printf("    MFT record size:         %d", p.S8(64)));
    p.Line(Printf("    Index buffer size:       %d", p.S8(68)));
    p.Line(Printf("    Serial number:           %04X-%04X-%04X-%04X", p.U16(78), p.U16(76), p.U16(74), p.U16(72)));
    p.Line(Printf("    Boot signature (0AA55h): 0x%04X", p.U16(510)));
}

}  // namespace

BootSectorLayout ChooseBootSectorLayout(std::uint64_t fileSystemType, std::uint64_t typeByte,
                                        std::uint64_t typeByteFileSystem) {
    if (fileSystemType == kFsFat || fileSystemType == kFsHpfs) return BootSectorLayout::kFat16;
    if (fileSystemType == kFsFat32) return BootSectorLayout::kFat32;
    if (fileSystemType == kFsNtfs) return BootSectorLayout::kNtfs;
    if (fileSystemType != 0) return BootSectorLayout::kNone;
    if (typeByteFileSystem == kFsFat) return BootSectorLayout::kFat16;
    if (typeByteFileSystem == kFsFat32) return BootSectorLayout::kFat32;
    if (typeByte == kTypeByteNtfs) return BootSectorLayout::kNtfs;
    return BootSectorLayout::kNone;
}

void AppendBootSector(std::string& out, BootSectorLayout layout, std::span<const std::uint8_t> sector) {
    if (sector.size() < kBootSectorBytes) return;
    Printer printer(out, sector);
    switch (layout) {
        case BootSectorLayout::kFat16: Fat16(printer); break;
        case BootSectorLayout::kFat32: Fat32(printer); break;
        case BootSectorLayout::kNtfs: Ntfs(printer); break;
        case BootSectorLayout::kNone: break;
    }
}

}  // namespace DaApi
