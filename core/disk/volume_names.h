// Name look-up shared by the mounted-volume backends: FAT and NTFS compare names without regard to case.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/disk/mounted_volume.h"

namespace Disk {

// True when the UTF-8 names are equal once ASCII and Latin letters are folded to lower case.
bool VolumeNamesEqual(std::string_view a, std::string_view b);

// The first entry named `name`; nullptr when there is none.
const VolumeEntry* FindVolumeEntry(const std::vector<VolumeEntry>& entries, std::string_view name);

// UTF-8 of UTF-16 code units; unpaired surrogates become U+FFFD.
std::string Utf16ToUtf8(std::u16string_view text);

}  // namespace Disk
