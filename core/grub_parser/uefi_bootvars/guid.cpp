// Vendor GUIDs of firmware variables.
#include "core/grub_parser/uefi_bootvars/guid.h"

#include <cstdio>

namespace Uefi {

Guid GuidFromBytes(std::span<const std::uint8_t, 16> bytes) {
    Guid guid;
    guid.data1 = static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
                 static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
    guid.data2 = static_cast<std::uint16_t>(bytes[4] | bytes[5] << 8);
    guid.data3 = static_cast<std::uint16_t>(bytes[6] | bytes[7] << 8);
    for (std::size_t i = 0; i < guid.data4.size(); ++i) guid.data4[i] = bytes[8 + i];
    return guid;
}

std::string GuidToLowerText(const Guid& guid) {
    char text[37];
    std::snprintf(text, sizeof text, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  static_cast<unsigned>(guid.data1), static_cast<unsigned>(guid.data2),
                  static_cast<unsigned>(guid.data3), guid.data4[0], guid.data4[1], guid.data4[2], guid.data4[3],
                  guid.data4[4], guid.data4[5], guid.data4[6], guid.data4[7]);
    return text;
}

}  // namespace Uefi
