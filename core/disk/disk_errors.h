// Error codes of the disk library's reads.
#pragma once

#include <cstdint>

#include "core/common/error.h"

namespace Disk {

namespace Codes {
inline constexpr std::uint32_t kOutsideDevice = 0x40201;
inline constexpr std::uint32_t kReadFailed = 0x40202;
inline constexpr std::uint32_t kNotReadable = 0x40203;
inline constexpr std::uint32_t kOpenFailed = 0x40204;
// A file system's structure is unsound (a broken cluster chain, a directory that does not end).
inline constexpr std::uint32_t kBadStructure = 0x40210;
// A name looked up in a mounted volume is not there, or is not what was asked for (a file, a folder).
inline constexpr std::uint32_t kNotFound = 0x40211;
// No way of reading the volume's files serves it.
inline constexpr std::uint32_t kNotMountable = 0x40212;
}  // namespace Codes

// The range [first, first + count) does not lie inside a device of `sectors` sectors.
Common::Error OutsideDevice(std::uint64_t first, std::uint64_t count, std::uint64_t sectors,
                            std::source_location where = std::source_location::current());
bool InsideDevice(std::uint64_t first, std::uint64_t count, std::uint64_t sectors);

}  // namespace Disk
