// Random UUIDs from the system's random source.
#include "core/common/uuid.h"

#include <cstdio>
#include <random>

#include "core/common/strings.h"

namespace Common {

Uuid NewRandomUuid() {
    static thread_local std::random_device source;
    Uuid uuid{};
    for (size_t i = 0; i < uuid.size(); i += 4) {
        std::uint32_t word = source();
        for (size_t k = 0; k < 4; ++k) uuid[i + k] = static_cast<std::uint8_t>(word >> (8 * k));
    }
    // Data3 is stored little-endian, so its high nibble (the version) sits in byte 7.
    uuid[7] = static_cast<std::uint8_t>((uuid[7] & 0x0F) | 0x40);
    uuid[8] = static_cast<std::uint8_t>((uuid[8] & 0x3F) | 0x80);
    return uuid;
}

std::wstring FormatUuid(const Uuid& u) {
    unsigned long data1 = static_cast<unsigned long>(u[0]) | static_cast<unsigned long>(u[1]) << 8 |
                          static_cast<unsigned long>(u[2]) << 16 | static_cast<unsigned long>(u[3]) << 24;
    auto data2 = static_cast<unsigned short>(u[4] | u[5] << 8);
    auto data3 = static_cast<unsigned short>(u[6] | u[7] << 8);
    char text[40];
    std::snprintf(text, sizeof text, "%08lX-%04hX-%04hX-%02X%02X-%02X%02X%02X%02X%02X%02X", data1, data2, data3,
                  u[8], u[9], u[10], u[11], u[12], u[13], u[14], u[15]);
    return Utf8ToWide(text);
}

std::wstring NewScratchName() { return FormatUuid(NewRandomUuid()); }

}  // namespace Common
