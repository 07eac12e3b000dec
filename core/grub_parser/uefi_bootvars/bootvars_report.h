// The text of "uefi_vars.txt": every firmware boot entry with its decoded load option and raw value,
// then the boot order.
#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "core/common/error.h"
#include "core/grub_parser/uefi_bootvars/boot_entries.h"
#include "core/grub_parser/uefi_bootvars/variable.h"

namespace Uefi {

// Failures of the UEFI layer become lines of the text, never a failed report: this returns success. A
// failed write of `out` is left in the stream's state for the item to see; the rest is still attempted.
// A null `out` writes nothing.
Common::Error WriteUefiBootVariablesReport(std::ostream* out, VariableStore& store);

// One entry's block ("---- 3 ----", the six field lines, the hex dump); fails when the entry's value
// cannot be read or decoded.
Common::Error BuildBootEntryText(BootEntry& entry, std::string& text);

// The report's 8-bit text of wide text: the low byte of every UTF-16 unit, no code page involved, so
// characters above U+00FF come out mangled.
std::string NarrowToLowBytes(std::wstring_view text);

// Formatted lines are cut where a 1,024-byte formatting buffer with its terminating zero cuts them.
inline constexpr std::size_t kFormattedLineLimit = 1023;
std::string LimitFormattedLine(std::string line);

// "%08lX-%04hX-%04hX-%02X%02X-%02X%02X%02X%02X%02X%02X".
std::string FormatPartitionGuid(const Guid& guid);

}  // namespace Uefi
