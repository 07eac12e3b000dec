// The boot configuration store of the running system. Windows keeps it loaded under
// HKEY_LOCAL_MACHINE\BCD00000000 and holds its file open, so a store file that the system is using cannot be
// read or loaded by us; the loaded copy is read instead. Other systems have no running store.
#pragma once

#include <memory>

#include "core/common/error.h"
#include "core/hive/hive.h"

namespace Hive {

// True when `loadError`, the failure of reading or loading a store file, says that the system holds the file
// open (a sharing or lock violation): the file is then the running store, which OpenRunningStore reaches.
bool IsHeldBySystem(const Common::Error& loadError);

// Opens HKEY_LOCAL_MACHINE\BCD00000000 for reading; fails where there is no running store.
Common::Error OpenRunningStore(std::unique_ptr<HiveStore>& store);

}  // namespace Hive
