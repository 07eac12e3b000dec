// Fresh random version-4 UUIDs, in the upper-case form used to name scratch files.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace Common {

using Uuid = std::array<std::uint8_t, 16>;

// Random bytes with the version (4) and the RFC 4122 variant bits set.
Uuid NewRandomUuid();
// "%08lX-%04hX-%04hX-%02X%02X-%02X%02X%02X%02X%02X%02X" over the UUID's fields (first three little-endian,
// as the Windows GUID structure holds them): upper-case, no braces.
std::wstring FormatUuid(const Uuid& uuid);
std::wstring NewScratchName();

}  // namespace Common
