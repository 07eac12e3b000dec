// The boot configuration report, "ksx.txt": for every partition that can be mounted, its root listing, its
// boot files, the boot manager's folder and the dump of its boot configuration store. 8-bit text, CR LF.
#pragma once

#include <filesystem>
#include <ostream>

#include "core/common/error.h"

namespace DaApi {

// Writes the report to `out` through the process-wide DA-API instance and leaves the computer selection
// released. `scratch` takes the short-lived copies of the stores (a hive is opened from a file). Nothing is
// written when `out` is null. Fails only when the computer cannot be selected; a partition that cannot be
// mounted or read gives "Mount error" or shorter text, and the walk goes on.
Common::Error WriteKsxReport(std::ostream* out, const std::filesystem::path& scratch);

}  // namespace DaApi
