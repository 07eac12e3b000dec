// The disk layout report, "disks.txt": every computer, disk, partition, volume and file system that the
// DA-API sees, in a fixed-layout 8-bit text with CR LF line ends (the error section's lines end in LF).
#pragma once

#include <ostream>

#include "core/common/error.h"

namespace DaApi {

// Writes the whole document to `out` through the process-wide DA-API instance, and leaves the selection
// at the computer level, released. Nothing is written when `out` is null. Fails only when the computer
// cannot be selected or the walk fails unexpectedly; what was written until then stays.
Common::Error WriteDisksReport(std::ostream* out);

}  // namespace DaApi
