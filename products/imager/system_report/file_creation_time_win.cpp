// Creation times from the file's attributes.
#include "products/imager/system_report/file_creation_time.h"

#include "core/common/windows_api.h"

namespace SystemReport {

std::optional<std::time_t> FileCreationTime(const std::filesystem::path& path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return std::nullopt;
    // FILETIME counts 100 ns intervals since 1601-01-01; 11644473600 seconds lie between that and 1970.
    ULARGE_INTEGER ticks;
    ticks.LowPart = data.ftCreationTime.dwLowDateTime;
    ticks.HighPart = data.ftCreationTime.dwHighDateTime;
    return static_cast<std::time_t>(ticks.QuadPart / 10000000ULL) - static_cast<std::time_t>(11644473600LL);
}

}  // namespace SystemReport
