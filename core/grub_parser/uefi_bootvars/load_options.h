// A decoded EFI_LOAD_OPTION: the questions the report asks of a boot entry's value.
#pragma once

#include <cstdint>
#include <string>

#include "core/common/error.h"
#include "core/grub_parser/uefi_bootvars/byte_reader.h"
#include "core/grub_parser/uefi_bootvars/guid.h"

namespace Uefi {

// Disk scheme codes of the program's disk layer, answered by GetDiskType.
namespace DiskType {
inline constexpr std::uint32_t kMbr = 2;
inline constexpr std::uint32_t kGpt = 8;
inline constexpr std::uint32_t kUnknown = 0x8000;
}  // namespace DiskType

// Each getter fills its output only on success. The partition queries look at the first hard-drive node,
// GetPath at the first file-path node; without one they fail with 0x12F0005 "Incorrect boot path.".
// Texts are the stored UTF-16 units, unconverted: on Linux a wide string would turn a lone surrogate
// into U+FFFD, and the report's low-byte narrowing would then differ from Windows'.
class LoadOptions {
public:
    virtual ~LoadOptions() = default;
    virtual Common::Error Fill(ByteReader& reader) = 0;
    virtual Common::Error GetDescription(std::u16string& description) const = 0;
    virtual Common::Error GetPath(std::u16string& path) const = 0;
    virtual Common::Error GetPartitionNumber(std::uint32_t& number) const = 0;
    virtual Common::Error GetPartitionStart(std::uint64_t& start) const = 0;
    virtual Common::Error GetPartitionSize(std::uint64_t& size) const = 0;
    virtual Common::Error GetDiskType(std::uint32_t& type) const = 0;
    // Only for a GPT disk; otherwise 0x12F0007 "Incorrect boot signature.".
    virtual Common::Error GetPartitionGUID(Guid& guid) const = 0;
    // The MBR disk signature, only for an MBR disk; otherwise 0x12F0007.
    virtual Common::Error GetNtSignature(std::uint32_t& signature) const = 0;
};

}  // namespace Uefi
