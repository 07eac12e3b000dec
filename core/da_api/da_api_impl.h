// The DA-API over the disk library: the machine's disks, or image files standing in for them.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/da_api/da_api.h"
#include "core/disk/block_device.h"

namespace DaApi {

// What the computer level answers, gathered once from the operating system.
struct ComputerFacts {
    std::string name;
    Value osKind = 0;
    Value firmwareKind = 0;
    Value usedDriveLetters = 0;  // bit 0 = 'A'
    // Free bytes of the mounted volume with this drive letter, from the operating system.
    std::function<std::optional<std::uint64_t>(char letter)> freeBytesOfLetter;
};

ComputerFacts QueryComputerFacts();

// The images named in SYSTEM_REPORT_DISK_IMAGES, else the machine's disks.
std::unique_ptr<Interface> MakeMachineInterface();
// Over `source` (nullptr: a machine with no disks) and the given computer facts.
std::unique_ptr<Interface> MakeMachineInterface(std::unique_ptr<Disk::DiskSource> source);
std::unique_ptr<Interface> MakeMachineInterface(std::unique_ptr<Disk::DiskSource> source, ComputerFacts computer);

}  // namespace DaApi
