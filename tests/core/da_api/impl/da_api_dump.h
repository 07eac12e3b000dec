// A compact text of what a DA-API instance answers for every disk and object, for comparing two sources.
#pragma once

#include <string>

#include "core/da_api/da_api.h"

namespace TestSupport {

enum class DumpScope {
    kEverything,
    // Only what the disk's contents decide: no disk numbers, device facts or operating-system numbering,
    // so that an image and the same image attached to a block device give the same text.
    kContents,
};

// Selects the computer, walks every disk (or only the one whose device name is `device`) and object, and
// leaves the selection at the computer level.
std::string DumpDisks(DaApi::Interface& api, DumpScope scope = DumpScope::kEverything, const std::string& device = {});

}  // namespace TestSupport
