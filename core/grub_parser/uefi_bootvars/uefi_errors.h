// Error codes of the UEFI facility and the mapping of native firmware statuses onto them.
#pragma once

#include <cstdint>
#include <source_location>
#include <string>

#include "core/common/error.h"

namespace Uefi {

namespace Codes {
inline constexpr std::uint32_t kProcedureNotFound = 0x12F0001;  // "Failed to find procedure '{0}' in '{1}'."
inline constexpr std::uint32_t kPrivilege = 0x12F0002;          // "Failed to obtain privilege '{0}'."
inline constexpr std::uint32_t kNotLoaded = 0x12F0003;          // Save of a variable that holds no value
inline constexpr std::uint32_t kBootEntry = 0x12F0004;          // "An error of Boot Entry '{0}'."
inline constexpr std::uint32_t kIncorrectBootPath = 0x12F0005;  // "Incorrect boot path."
inline constexpr std::uint32_t kNotImplemented = 0x12F0006;     // "Not implemented."
inline constexpr std::uint32_t kIncorrectSignature = 0x12F0007; // "Incorrect boot signature."
inline constexpr std::uint32_t kNotFound = 0x12F0008;           // "Boot Entry '{0}' cannot be found."
inline constexpr std::uint32_t kMalformed = 0x12F000D;          // truncated or malformed load option
inline constexpr std::uint32_t kStatus0454 = 0x12F000E;         // NT status 0xC0000454
}  // namespace Codes

// NT statuses that the firmware-variable routines answer with.
namespace NtStatus {
inline constexpr std::uint32_t kNotImplemented = 0xC0000002;
inline constexpr std::uint32_t kBufferTooSmall = 0xC0000023;
inline constexpr std::uint32_t kVariableNotFound = 0xC0000100;
inline constexpr std::uint32_t k0454 = 0xC0000454;
}  // namespace NtStatus

// The error for a failing NT status of the routine or variable `entryName`; the status itself is attached
// as the cause.
Common::Error GetUefiErrorFromNtStatus(std::uint32_t status, const std::wstring& entryName,
                                       std::source_location where = std::source_location::current());

Common::Error MakeNotFoundError(const std::wstring& entryName, Common::Error cause = {},
                                std::source_location where = std::source_location::current());
Common::Error MakeNotImplementedError(Common::Error cause = {},
                                      std::source_location where = std::source_location::current());
Common::Error MakeBootEntryError(const std::wstring& entryName, Common::Error cause = {},
                                 std::source_location where = std::source_location::current());
Common::Error MakeIncorrectBootPathError(std::source_location where = std::source_location::current());
Common::Error MakeMalformedError(std::source_location where = std::source_location::current());
// 0x12F0003 with no message: Save of a variable that holds no value.
Common::Error MakeNotLoadedError(std::source_location where = std::source_location::current());

}  // namespace Uefi
