// libFuzzer target: one BCD element value through every decoder the boot-chain check applies to stored
// bytes, and the same bytes as a hive base block and as a first sector.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "core/boot_check/bcd_elements.h"
#include "core/boot_check/boot_code.h"
#include "core/boot_check/hive_header.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::span<const std::uint8_t> bytes(data, size);
    std::string why;
    if (std::optional<BootCheck::Device> device = BootCheck::DecodeDevice(bytes, why); device && device->partition)
        (void)BootCheck::ObjectLabel(device->partition->diskGuid);
    if (auto strings = BootCheck::Utf16Strings(bytes))
        for (const std::string& text : *strings) (void)BootCheck::ParseGuidText(text);
    BootCheck::HiveHeader header;
    (void)BootCheck::ReadHiveHeader(bytes, header);
    (void)BootCheck::IdentifyBootCode(bytes, BootCheck::SectorKind::BootSector);
    (void)BootCheck::HiddenSectors(bytes);
    return 0;
}
