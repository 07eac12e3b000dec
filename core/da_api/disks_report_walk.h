// The disk report's walks over the DA-API selection: every disk of the computer in the interface's order,
// and every object of the current disk, volumes of a volume group included.
#pragma once

#include <cstdint>
#include <functional>

#include "core/da_api/da_api.h"

namespace DaApi::DisksReport {

// Where the current object sits. Objects of an ordinary disk have all flags false; on a disk-level
// object that is a volume group, the walk yields each volume and then the objects inside it.
struct Place {
    bool volumeGroup = false;  // the current disk-level object is a volume group (property 311)
    bool volume = false;       // the object is a volume of that group
    bool inVolume = false;     // the object lies inside a volume of that group
    Value volumeNumber = 0;    // the volume's number (property 66 of the volume)
};

// Selects the computer for a pass and no disk; the interface's error when it has no computer to select.
Common::Error BeginPass();
// Drops the object, the disk and the volume group, so that the next walk starts clean.
void EndPass();
// Releases the computer selection at the end of the report.
void ReleaseComputer();

// Selects each disk-level object of the computer in turn and calls `visit`.
void ForEachDisk(const std::function<void()>& visit);

// Selects each object of the current disk in turn and calls `visit`; objects carrying a skip mark
// (property 8) are passed over.
void ForEachObject(const std::function<void(const Place&)>& visit);

}  // namespace DaApi::DisksReport
