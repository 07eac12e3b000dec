// Fills the boot-chain check's machine model from this machine: the firmware's boot variables, and the
// disks, partitions, first sectors and mounted file systems the DA-API reports. Reads only.
#pragma once

#include "core/boot_check/machine.h"
#include "core/grub_parser/uefi_bootvars/variable.h"

namespace BootCheck {

// Failures become the model's "unavailable"/"unreadable" texts; nothing here fails the item.
Machine ProbeMachine(Uefi::VariableStore& store);

// "BCDOBJECT={guid}" in a load option's optional data (UTF-16LE, as the boot manager writes it), lower case.
std::optional<std::string> FindBcdObject(std::span<const std::uint8_t> optionalData);

}  // namespace BootCheck
