// Registry hive base block.
#include "core/boot_check/hive_header.h"

#include "core/disk/bytes.h"

namespace BootCheck {

bool ReadHiveHeader(std::span<const std::uint8_t> bytes, HiveHeader& header) {
    // The checksum is the XOR of the first 127 32-bit words, stored in the 128th (offset 508); the
    // registry never stores 0 or all ones there, but 1 and 0xFFFFFFFE instead.
    constexpr std::size_t kChecksumOffset = 508;
    if (bytes.size() < kChecksumOffset + 4) return false;
    header.signature = Disk::HasMagic(bytes, 0, "regf");
    header.primarySequence = Disk::Le32(bytes, 4);
    header.secondarySequence = Disk::Le32(bytes, 8);
    header.storedChecksum = Disk::Le32(bytes, kChecksumOffset);
    std::uint32_t sum = 0;
    for (std::size_t offset = 0; offset < kChecksumOffset; offset += 4) sum ^= Disk::Le32(bytes, offset);
    if (sum == 0) sum = 1;
    if (sum == 0xFFFFFFFF) sum = 0xFFFFFFFE;
    header.computedChecksum = sum;
    return true;
}

}  // namespace BootCheck
