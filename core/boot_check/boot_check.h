// The boot-chain check: joins firmware entries, partitions, BCD stores and boot code, and writes
// "boot_check.txt": a verdict line, then one section per check with one OK, PROBLEM or UNKNOWN line per
// finding. Reads only.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "core/boot_check/machine.h"
#include "core/common/error.h"
#include "core/hive/hive.h"

namespace BootCheck {

// Opens the bytes of a BCD file as a registry hive (OpenHiveBytes, or a fake).
using HiveOpener = std::function<Common::Error(const std::string& bytes, std::unique_ptr<Hive::HiveStore>& store)>;

// The check's text, CRLF line ends.
std::string BuildBootCheck(Machine& machine, const HiveOpener& openHive);

}  // namespace BootCheck
