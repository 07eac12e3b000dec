// What the boot-chain check reads about a machine: firmware boot entries, disks and partitions with their
// first sectors and mounted file systems. Filled from the real layers by machine_probe.h, by hand in tests.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/disk/mounted_volume.h"

namespace BootCheck {

// The first hard-drive node of a boot entry's device path.
struct HardDriveNode {
    bool gpt = false;
    std::string partitionGuid;         // GPT, lower case
    std::uint32_t diskSignature = 0;   // MBR
    std::uint32_t partitionNumber = 0;
    std::uint64_t start = 0;           // sectors
    std::uint64_t size = 0;            // sectors
};

struct FirmwareEntry {
    std::uint16_t number = 0;
    std::string description;
    std::string unreadable;            // why the variable could not be read or decoded; empty when it was
    std::optional<HardDriveNode> hardDrive;
    std::string filePath;              // the first file-path node, "\EFI\..."; empty when none
    std::optional<std::string> bcdObject;  // "BCDOBJECT={guid}" of the optional data, lower case
};

struct Firmware {
    std::string unavailable;           // why boot variables cannot be read at all; empty when they can
    std::vector<std::uint16_t> variables;   // the Boot#### numbers that exist
    std::optional<std::vector<std::uint16_t>> bootOrder;
    std::string bootOrderUnreadable;   // why BootOrder is missing
    std::vector<FirmwareEntry> entries;
};

struct Partition {
    std::uint32_t number = 0;          // as "disks.txt" numbers it
    std::uint64_t start = 0;           // sectors
    std::uint64_t size = 0;            // sectors
    std::string guid;                  // GPT unique partition GUID, lower case
    bool active = false;
    bool logical = false;              // inside an MBR extended partition
    std::vector<std::uint8_t> bootSector;   // empty when it could not be read
    std::unique_ptr<Disk::MountedVolume> volume;
    std::string unmounted;             // why mounting failed; empty when there is no file system to mount
};

struct MachineDisk {
    std::uint32_t number = 0;          // as "disks.txt" numbers it
    bool gpt = false;
    bool mbr = false;
    std::string guid;                  // GPT disk GUID, lower case
    std::uint32_t signature = 0;       // MBR disk signature
    std::uint32_t sectorSize = 512;
    bool biosFirst = false;            // BIOS drive 0x80, the disk a BIOS starts
    std::vector<std::uint8_t> sector0; // empty when unreadable
    std::vector<Partition> partitions;
};

struct Machine {
    Firmware firmware;
    bool biosFirmware = false;
    std::string disksUnavailable;      // why the disks could not be listed; empty when they could
    std::vector<MachineDisk> disks;
};

}  // namespace BootCheck
