// Files of a mounted volume looked up by path, telling a missing file from one that cannot be read.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/disk/mounted_volume.h"

namespace BootCheck {

enum class FileLookup { Found, Missing, Unreadable };

// Follows `path` ("EFI/Microsoft/Boot/BCD" or "\EFI\...", names compared without regard to ASCII case)
// from `root` and reads at most `limit` bytes of the file; `size` is its whole size.
FileLookup ReadFileAt(Disk::VolumeDirectory& root, std::string_view path, std::uint64_t limit, std::string& bytes,
                      std::uint64_t& size);

}  // namespace BootCheck
