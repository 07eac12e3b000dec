// Links on POSIX systems: lstat, which does not follow the link it is asked about.
#include "products/imager/system_report/link_check.h"

#include <sys/stat.h>

namespace SystemReport {

bool IsLink(const std::filesystem::path& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

}  // namespace SystemReport
