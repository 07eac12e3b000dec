// GUIDs as stored on disk (the first three fields little-endian, as in GPT) and their text form.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "core/disk/bytes.h"

namespace Disk {

struct Guid {
    std::array<std::uint8_t, 16> bytes{};  // on-disk order

    static Guid FromBytes(Bytes sixteen);
    bool IsZero() const;
    // "C12A7328-F81F-11D2-BA4B-00A0C93EC93B"
    std::string ToString() const;
    friend bool operator==(const Guid&, const Guid&) = default;
};

}  // namespace Disk
