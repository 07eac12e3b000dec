// Computer-level facts on Linux: host name, firmware kind from /sys/firmware/efi; no drive letters.
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "core/da_api/da_api_impl.h"
#include "core/da_api/da_properties.h"

namespace DaApi {

ComputerFacts QueryComputerFacts() {
    ComputerFacts facts;
    char host[HOST_NAME_MAX + 1] = {};
    if (gethostname(host, sizeof host - 1) == 0) facts.name = host;
    facts.osKind = OsKind::kLinux;
    std::error_code ignored;
    if (std::filesystem::exists("/sys/firmware/efi", ignored)) {
        int bits = 64;
        std::ifstream("/sys/firmware/efi/fw_platform_size") >> bits;
        facts.firmwareKind = bits == 32 ? FirmwareKind::kUefiX86 : FirmwareKind::kUefiX64;
    } else {
        facts.firmwareKind = FirmwareKind::kBios;
    }
    facts.freeBytesOfLetter = [](char) { return std::optional<std::uint64_t>(); };
    return facts;
}

}  // namespace DaApi
