// Block devices: whole-sector reads plus what the platform tells about a disk and its mounted volumes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/common/error.h"

namespace Disk {

// Sector sizes the library reads: a power of two from 512 (an MBR must fit in sector 0) to 64 KiB.
constexpr bool IsSupportedSectorSize(std::uint64_t bytes) {
    return bytes >= 512 && bytes <= 65536 && (bytes & (bytes - 1)) == 0;
}

// Whole logical sectors of a device. A range that does not lie inside the device fails without reading.
class SectorReader {
public:
    virtual ~SectorReader() = default;
    virtual std::uint32_t SectorSize() const = 0;
    virtual std::uint64_t SectorCount() const = 0;
    // Replaces `data` with `count` sectors from `first`.
    virtual Common::Error Read(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) = 0;
};

struct ScsiAddress {
    std::uint32_t host = 0;
    std::uint32_t bus = 0;
    std::uint32_t target = 0;
    std::uint32_t lun = 0;
};

struct Geometry {
    std::uint64_t cylinders = 0;
    std::uint32_t heads = 0;
    std::uint32_t sectorsPerTrack = 0;
};

// Best-effort facts: what the platform does not say stays empty.
struct DeviceFacts {
    std::string deviceName;  // UTF-8: the image's file name, "/dev/sda", "\\.\PhysicalDrive0"
    std::string systemName;  // UTF-8: the kernel's name of the disk ("sda"), where there is one
    std::string model;
    std::string serial;
    std::string controller;
    std::uint32_t interfaceType = 0;  // the DA-API interface values (1 SCSI ... 17 NVMe)
    std::optional<ScsiAddress> scsi;
    std::uint32_t physicalSectorSize = 0;
    std::uint64_t alignmentOffsetBytes = 0;
    std::optional<Geometry> geometry;
    std::optional<std::uint32_t> osDiskNumber;
};

// A partition or volume as the operating system sees it, placed on the disk by its byte offset.
struct VolumeFacts {
    std::uint64_t offsetBytes = 0;
    std::uint64_t lengthBytes = 0;
    std::optional<std::uint32_t> osPartitionNumber;
    char driveLetter = 0;    // 'A'..'Z', 0 for none
    std::string mountPoint;  // UTF-8
    std::string volumePath;  // UTF-8: Windows' "\\?\Volume{GUID}\" of the partition's volume; empty elsewhere
    std::optional<std::u16string> label;
    std::optional<std::uint64_t> freeBytes;
};

class BlockDevice : public SectorReader {
public:
    // False when the device could be listed but not opened for reading: every Read then fails.
    virtual bool Readable() const = 0;
    virtual const DeviceFacts& Facts() const = 0;
    // Asks the operating system; images have none.
    virtual std::vector<VolumeFacts> Volumes() = 0;
};

// The disks of a machine, in the order the report lists them.
class DiskSource {
public:
    virtual ~DiskSource() = default;
    virtual std::vector<std::unique_ptr<BlockDevice>> Enumerate() = 0;
};

// Image files standing in for disks. The sector size is 4096 when a GPT header sits at byte 4096 and not
// at byte 512, or when the MBR's partitions only make sense in 4096-byte sectors; 512 otherwise.
std::unique_ptr<DiskSource> MakeImageSource(std::vector<std::filesystem::path> images);
// The machine's own disks (\\.\PhysicalDriveN on Windows, /sys/block on Linux).
std::unique_ptr<DiskSource> MakeSystemSource();
// Images named in SYSTEM_REPORT_DISK_IMAGES (separated by ';' on Windows, ':' elsewhere) when it names
// any, else the machine's disks.
std::unique_ptr<DiskSource> MakeDefaultSource();

// Splits a path list at `separator`, dropping empty items.
template <typename Char>
std::vector<std::filesystem::path> SplitPathList(std::basic_string_view<Char> list, Char separator) {
    std::vector<std::filesystem::path> paths;
    while (!list.empty()) {
        const auto end = list.find(separator);
        const auto item = list.substr(0, end);
        if (!item.empty()) paths.emplace_back(std::basic_string<Char>(item));
        if (end == list.npos) break;
        list.remove_prefix(end + 1);
    }
    return paths;
}

}  // namespace Disk
