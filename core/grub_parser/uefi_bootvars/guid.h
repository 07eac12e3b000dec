// Vendor GUIDs of firmware variables and the EFI global-variable namespace.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace Uefi {

// The four-part GUID layout (32-bit, 16-bit, 16-bit, 8 bytes); the first three parts are stored
// little-endian in firmware data, as the UEFI standard's EFI_GUID.
struct Guid {
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::array<std::uint8_t, 8> data4{};

    friend bool operator==(const Guid&, const Guid&) = default;
};

// EFI_GLOBAL_VARIABLE: every Boot#### variable and BootOrder lives under it.
inline constexpr Guid kEfiGlobalVariable{0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}};

// Reads a GUID from its 16-byte firmware encoding.
Guid GuidFromBytes(std::span<const std::uint8_t, 16> bytes);

// "8be4df61-93ca-11d2-aa0d-00e098032b8c": the lower-case form used in efivarfs file names.
std::string GuidToLowerText(const Guid& guid);

}  // namespace Uefi
