// The health of a registry hive file read from its base block (the first 4 KiB).
#pragma once

#include <cstdint>
#include <span>

namespace BootCheck {

struct HiveHeader {
    bool signature = false;  // "regf" at 0
    std::uint32_t primarySequence = 0;
    std::uint32_t secondarySequence = 0;
    std::uint32_t storedChecksum = 0;
    std::uint32_t computedChecksum = 0;
    // The two sequence numbers differ while a write is under way; a store left so was not flushed whole
    // (its .LOG file may hold the rest).
    bool SequencesEqual() const { return primarySequence == secondarySequence; }
    bool ChecksumRight() const { return storedChecksum == computedChecksum; }
};

// The base block needs 512 bytes; fewer give nothing.
bool ReadHiveHeader(std::span<const std::uint8_t> bytes, HiveHeader& header);

}  // namespace BootCheck
