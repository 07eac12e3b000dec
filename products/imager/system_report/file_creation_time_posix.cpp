// Birth times through statx; file systems without them (and older kernels) give the modification time.
#include "products/imager/system_report/file_creation_time.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace SystemReport {

std::optional<std::time_t> FileCreationTime(const std::filesystem::path& path) {
    struct statx status;
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME | STATX_MTIME, &status) == 0) {
        if (status.stx_mask & STATX_BTIME) return static_cast<std::time_t>(status.stx_btime.tv_sec);
        if (status.stx_mask & STATX_MTIME) return static_cast<std::time_t>(status.stx_mtime.tv_sec);
    }
    struct stat fallback;
    if (stat(path.c_str(), &fallback) != 0) return std::nullopt;
    return fallback.st_mtime;
}

}  // namespace SystemReport
