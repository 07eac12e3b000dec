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
// write that the disk does not take is the output file's to record (the item's file keeps its stream
// good), so the rest is still written. A null `out` writes nothing.
Common::Error WriteUefiBootVariablesReport(std::ostream* out, VariableStore& store);

// One entry's block ("---- 3 ----", the six field lines, the hex dump); fails when the entry's value
// cannot be read or decoded.
Common::Error BuildBootEntryText(BootEntry& entry, std::string& text);

// The report's 8-bit text of UTF-16 text: the low byte of every unit, no code page involved, so
// characters above U+00FF come out mangled, a surrogate pair as two bytes and a lone surrogate as its own
// low byte, alike on every platform.
std::string NarrowToLowBytes(std::u16string_view text);

// Formatted lines (the entry title, the six field lines, the "Unable to obtain ..." line and each number
// of the boot order) pass a formatter with a 1,024-byte buffer. The cut is taken after narrowing, so it
// counts the bytes written, and keeps 1,023 of them (the buffer's last byte holds the terminating zero).
// The "\r\n" is added after the cut, so a cut line still ends its line and the next starts on its own.
// The hex dump is not a formatted line and is never cut.
inline constexpr std::size_t kFormattedLineLimit = 1023;
std::string LimitFormattedLine(std::string line);

// "%08lX-%04hX-%04hX-%02X%02X-%02X%02X%02X%02X%02X%02X".
std::string FormatPartitionGuid(const Guid& guid);

}  // namespace Uefi
