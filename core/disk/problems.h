// What can be wrong with a disk, a partition structure or a file system, as identifiers with fixed texts.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Disk {

// The identifiers are stable: they are the message identifiers of the DA-API's error properties.
enum class Problem : std::uint32_t {
    kEnumerationFailed = 1,
    kDeviceNotOpened = 2,
    kDiskReadFailed = 3,
    kEmptyDisk = 4,
    kGptNoValidHeader = 5,
    kGptPrimaryDamaged = 6,
    kGptBackupDamaged = 7,
    kGptEntryInvalid = 8,
    kPastEndOfDisk = 9,
    kOverlap = 10,
    kExtendedLoop = 11,
    kExtendedOutside = 12,
    kNoTableSignature = 13,
    kTooManyTables = 14,
    kTableUnreadable = 15,
    kFileSystemDamaged = 16,
    kFileSystemLargerThanPartition = 17,
    kFileSystemUnreadable = 18,
    kUnsupportedSectorSize = 19,
    kGptBehindLegacyMbr = 20,
};

// The fixed text of an identifier; empty for an identifier that has none.
std::string_view ProblemText(std::uint64_t id);

// One problem found at one place, with a sentence that says where (UTF-8).
struct Issue {
    Problem problem;
    std::string detail;
};

}  // namespace Disk
