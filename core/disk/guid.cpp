// GUID text form.
#include "core/disk/guid.h"

#include <algorithm>
#include <cstdio>

namespace Disk {

Guid Guid::FromBytes(Bytes sixteen) {
    Guid guid;
    std::copy_n(sixteen.begin(), guid.bytes.size(), guid.bytes.begin());
    return guid;
}

bool Guid::IsZero() const {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t b) { return b == 0; });
}

std::string Guid::ToString() const {
    char text[37];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(Le32(bytes, 0)), Le16(bytes, 4), Le16(bytes, 6), bytes[8], bytes[9], bytes[10],
                  bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return text;
}

}  // namespace Disk
