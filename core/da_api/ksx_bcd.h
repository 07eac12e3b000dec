// The BCD part of the boot configuration report: the boot configuration store of a partition, copied out of
// the mounted volume into the scratch folder (hives are opened from files), then loaded and dumped.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/common/error.h"
#include "core/disk/mounted_volume.h"

namespace DaApi::Ksx {

// Where a partition keeps its store: "\EFI\Microsoft\Boot\BCD" when it boots through the firmware (GPT
// layout), "\Boot\BCD" when it boots through the BIOS (MBR layout). The firmware path is tried first.
enum class BootLayout { kGpt, kMbr };

// A store longer than this is no boot store (they hold some ten to a hundred KiB): it is not copied.
inline constexpr std::uint64_t kMaxStoreBytes = 16 * 1024 * 1024;

// The store found on one partition: its layout, and either the copy in the scratch folder or the failure
// of reading it. Removes the copy when destroyed.
class StoreCopy {
public:
    StoreCopy() = default;
    StoreCopy(StoreCopy&& other) noexcept;
    StoreCopy& operator=(StoreCopy&& other) noexcept;
    ~StoreCopy();

    std::optional<BootLayout> layout;  // empty: the partition holds no store
    std::filesystem::path file;        // the copy; empty when reading failed
    Common::Error readError;

private:
    void Remove() noexcept;
};

// Looks for the store on `root` and copies it into `scratch` under a fresh name.
StoreCopy CopyStore(Disk::VolumeDirectory& root, const std::filesystem::path& scratch);

// Appends "BCD opened for ... boottype" and the dump of the store when it opens: from the copy, or, where
// reading or loading the copy failed because the system holds the store open, from the running system's
// store. Appends nothing when it opens neither way (a log line says why).
void WriteBcdPart(const StoreCopy& copy, std::string& out);

}  // namespace DaApi::Ksx
