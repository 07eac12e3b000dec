// BIOS drive-parameter printouts.
//
// Fixed-disk parameter table (the AT layout of the INT 41h/46h vectors), 16 bytes:
//   0 u16 cylinders, 2 u8 heads, 3 u16 reduced-write-current cylinder, 5 u16 write-precompensation
//   cylinder, 7 u8 maximum ECC burst length, 8 u8 control byte (bit 5 defect map present, bit 6 ECC
//   retries disabled, bit 7 access retries disabled), 9 u8 standard time-out, 10 u8 format time-out,
//   11 u8 check time-out, 12 u16 landing zone, 14 u8 sectors per track, 15 u8 reserved.
// A translated table (byte 3 = A0h) keeps the logical geometry at 0, 2 and 14 and the physical one at
// 9 (u16 cylinders), 11 (u8 heads) and 4 (u8 sectors per track); otherwise the two are the same.
//
// Function 48h result buffer: 0 u16 size, 2 u16 information flags (bit 0 DMA boundary errors handled
// transparently, bit 1 CHS information valid, bit 2 removable, bit 3 write with verify, bit 4 change-line
// support, bit 5 lockable, bit 6 CHS set to maxima because no media is present), 4 u32 cylinders, 8 u32
// heads, 12 u32 sectors per track, 16 u64 total sectors, 24 u16 bytes per sector.
#include "core/da_api/bios_parameters_dump.h"

#include "core/da_api/le_bytes.h"
#include "core/da_api/report_printf.h"

namespace DaApi {
namespace {

constexpr std::uint8_t kTranslatedSignature = 0xA0;

void Line(std::string& out, const std::string& text) {
    out += text;
    out += "\r\n";
}

unsigned Bit(unsigned value, unsigned bit) { return (value >> bit) & 1; }

}  // namespace

void AppendFixedDiskTable(std::string& out, std::span<const std::uint8_t> t) {
    if (t.size() < kFixedDiskTableBytes) return;
    bool translated = t[3] == kTranslatedSignature;
    unsigned control = t[8];
    Line(out, "  BIOS HDPT properties:");
    Line(out, Printf("    Geometry:              %u %u %u", Le16(t, 0), t[2], t[14]));
    if (translated) {
        Line(out, Printf("    Phys. geometry:        %u %u %u", Le16(t, 9), t[11], t[4]));
    } else {
        Line(out, Printf("    Phys. geometry:        %u %u %u", Le16(t, 0), t[2], t[14]));
    }
    Line(out, Printf("    Reduced write cyl.:    %u", Le16(t, 3)));
    Line(out, Printf("    Precompensation cyl.:  %u", Le16(t, 5)));
    Line(out, Printf("    Landing cylinder:      %u", Le16(t, 12)));
    Line(out, Printf("    Reserved:              0x%02X", t[15]));
    Line(out, Printf("    ECC burst lenght:      %u", t[7]));
    Line(out, Printf("    Access timeout:        %u", t[9]));
    Line(out, Printf("    Format timeout:        %u", t[10]));
    Line(out, Printf("    Check timeout:         %u", t[11]));
    Line(out, Printf("    Defect aap present:    %u", Bit(control, 5)));
    Line(out, Printf("    Disabled ECC retry:    %u", Bit(control, 6)));
    Line(out, Printf("    Disabled access retry: %u", Bit(control, 7)));
}

void AppendBiosExtensions(std::string& out, std::uint8_t version, std::uint16_t functions,
                          std::span<const std::uint8_t> p) {
    if (p.size() < kExtendedDriveParametersBytes) return;
    unsigned flags = Le16(p, 2);
    bool chsValid = Bit(flags, 1) != 0;
    bool noMedia = Bit(flags, 6) != 0;
    Line(out, "  BIOS extension properties:");
    Line(out, Printf("    Extension version:   %u.%u", version >> 4, version & 0x0Fu));
    Line(out, Printf("    Functions supported:%s%s%s", Bit(functions, 2) ? " EDD" : "", Bit(functions, 1) ? " Removable" : "",
                     Bit(functions, 0) ? " Ext." : ""));
    Line(out, Printf("    Transparent DMA:     %u", Bit(flags, 0)));
    Line(out, Printf("    CHS information:    %s%s%s", !chsValid && !noMedia ? " None" : "", noMedia ? " NoMedia" : "",
                     chsValid ? " Valid" : ""));
    Line(out, Printf("    Removable drive:     %u", Bit(flags, 2)));
    Line(out, Printf("    Write with verify:   %u", Bit(flags, 3)));
    Line(out, Printf("    Change-line:         %u", Bit(flags, 4)));
    Line(out, Printf("    Lockable drive:      %u", Bit(flags, 5)));
    Line(out, Printf("    Geometry:            %u %u %u", Le32(p, 4), Le32(p, 8), Le32(p, 12)));
    Line(out, Printf("    Total sectors:       %llu", static_cast<unsigned long long>(Le64(p, 16))));
    Line(out, Printf("    Sector size:         %u", Le16(p, 24)));
}

}  // namespace DaApi
