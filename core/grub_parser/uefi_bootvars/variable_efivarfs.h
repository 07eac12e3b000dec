// Firmware variables on Linux through efivarfs: one file per variable, named "<name>-<vendor guid>",
// holding the 4 attribute bytes followed by the value.
#pragma once

#include <filesystem>

#include "core/grub_parser/uefi_bootvars/variable.h"

namespace Uefi {

// Names a folder that stands in for efivarfs (tests, a copy of another machine's variables).
inline constexpr const char* kEfivarsDirEnvironment = "SYSTEM_REPORT_EFIVARS_DIR";

// /sys/firmware/efi/efivars, unless SYSTEM_REPORT_EFIVARS_DIR names another folder.
std::filesystem::path EfivarfsRoot();

// A missing root means the system has no UEFI variables: reads, writes and the listing then fail with
// 0x12F0006 "Not implemented.".
VariableStorePtr MakeEfivarfsStore(std::filesystem::path root);

}  // namespace Uefi
