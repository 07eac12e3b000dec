// Boot code signatures.
#include "core/boot_check/boot_code.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <initializer_list>
#include <string_view>

#include "core/disk/bytes.h"

namespace BootCheck {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kSectorSize = 512;
// The MBR's code ends where the disk signature begins.
constexpr std::size_t kMbrCodeEnd = 440;
// A boot sector's code ends at its 0x55AA mark.
constexpr std::size_t kBootSectorCodeEnd = 510;

struct Signature {
    std::string_view name;
    std::optional<SectorKind> kind;          // nothing: either
    std::string_view prefix;                 // hexadecimal bytes the sector starts with
    std::string_view fileSystem;             // text at the file-system name field (NTFS at 3, FAT32 at 82)
    std::initializer_list<std::string_view> texts;  // each somewhere in the code
};

// Prefixes are the first instructions, which differ between generations of the same maker's code; the
// texts are its own messages. A formatting tool's stub is matched by its message alone, in either place.
const std::array<Signature, 10> kSignatures{{
    {"Windows NT 6+ MBR", SectorKind::Mbr, "33C08ED0BC007C8EC08ED8BE007CBF0006B90002FCF3A450681C06CB", "",
     {"Invalid partition table"}},
    {"Windows NT 5 MBR", SectorKind::Mbr, "33C08ED0BC007CFB5007501FFCBE1B7CBF1B065057B9E501F3A4CB", "",
     {"Invalid partition table"}},
    {"GRUB 2 MBR", SectorKind::Mbr, "EB63", "", {"GRUB ", "Geom", "Hard Disk", " Error"}},
    {"syslinux MBR", SectorKind::Mbr, "33C0FA8ED88ED0BC007C", "", {"Missing operating system."}},
    {"syslinux GPT MBR", SectorKind::Mbr, "33C0FA8ED88ED0BC007C", "", {"Missing OS", "Disk error"}},
    {"Windows NTFS boot sector (BOOTMGR)", SectorKind::BootSector, "", "NTFS    ", {"BOOTMGR"}},
    {"Windows NTFS boot sector (NTLDR)", SectorKind::BootSector, "", "NTFS    ", {"NTLDR"}},
    {"Windows FAT32 boot sector (BOOTMGR)", SectorKind::BootSector, "", "FAT32   ", {"BOOTMGR"}},
    {"Windows FAT32 boot sector (NTLDR)", SectorKind::BootSector, "", "FAT32   ", {"NTLDR"}},
    {"formatting tool's stub, not bootable", std::nullopt, "", "", {"This is not a bootable disk"}},
}};

bool StartsWithHex(Bytes bytes, std::string_view hex) {
    if (bytes.size() * 2 < hex.size()) return false;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        unsigned value = 0;
        std::sscanf(std::string(hex.substr(i, 2)).c_str(), "%2x", &value);
        if (bytes[i / 2] != value) return false;
    }
    return true;
}

bool Contains(Bytes bytes, std::string_view text) {
    return std::search(bytes.begin(), bytes.end(), text.begin(), text.end(),
                       [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); }) != bytes.end();
}

bool Matches(const Signature& signature, Bytes sector, Bytes code, SectorKind kind) {
    if (signature.kind && *signature.kind != kind) return false;
    if (!signature.prefix.empty() && !StartsWithHex(sector, signature.prefix)) return false;
    if (!signature.fileSystem.empty() && !Disk::HasMagic(sector, signature.fileSystem == "NTFS    " ? 3 : 82,
                                                         signature.fileSystem))
        return false;
    return std::all_of(signature.texts.begin(), signature.texts.end(),
                       [&](std::string_view text) { return Contains(code, text); });
}

// A boot sector's code starts where its first jump lands, past the parameter block that differs from
// volume to volume; hashing from there lets equal code give equal hashes.
std::size_t BootSectorCodeStart(Bytes sector) {
    std::size_t start = 0;
    if (sector[0] == 0xEB) start = 2 + sector[1];
    else if (sector[0] == 0xE9) start = 3 + Disk::Le16(sector, 1);
    return start < kBootSectorCodeEnd ? start : 0;
}

std::string Sha256Hex(Bytes bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) return "?";
    std::string text;
    char hex[3];
    for (unsigned int i = 0; i < length; ++i) {
        std::snprintf(hex, sizeof hex, "%02x", digest[i]);
        text += hex;
    }
    return text;
}

}  // namespace

std::string IdentifyBootCode(std::span<const std::uint8_t> sector, SectorKind kind) {
    if (sector.size() < kSectorSize) return "unreadable";
    Bytes code = kind == SectorKind::Mbr ? sector.first(kMbrCodeEnd)
                                         : sector.subspan(BootSectorCodeStart(sector),
                                                          kBootSectorCodeEnd - BootSectorCodeStart(sector));
    if (std::all_of(code.begin(), code.end(), [](std::uint8_t byte) { return byte == 0; }))
        return "empty (zeroed code)";
    for (const Signature& signature : kSignatures)
        if (Matches(signature, sector, code, kind)) return std::string(signature.name);
    return "unknown code, SHA-256 " + Sha256Hex(code);
}

std::optional<std::uint32_t> HiddenSectors(std::span<const std::uint8_t> sector) {
    // FAT (DOS 3.31 and later) and NTFS keep it at 28; the 0x55AA mark and a power-of-two sector size
    // of 512 to 4096 tell a parameter block from arbitrary bytes.
    if (sector.size() < kSectorSize || sector[510] != 0x55 || sector[511] != 0xAA) return std::nullopt;
    std::uint16_t bytesPerSector = Disk::Le16(sector, 11);
    if (bytesPerSector < 512 || bytesPerSector > 4096 || (bytesPerSector & (bytesPerSector - 1)) != 0)
        return std::nullopt;
    if (sector[0] != 0xEB && sector[0] != 0xE9) return std::nullopt;
    return Disk::Le32(sector, 28);
}

}  // namespace BootCheck
