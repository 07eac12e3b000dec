// A BCD file's bytes opened as a registry hive: the hive readers open files by name, so the bytes go to a
// scratch file first, removed again when the store is released.
#pragma once

#include <memory>
#include <string>

#include "core/common/error.h"
#include "core/hive/hive.h"

namespace BootCheck {

Common::Error OpenHiveBytes(const std::string& bytes, std::unique_ptr<Hive::HiveStore>& store);

}  // namespace BootCheck
