// A network storage location found on the local network, and what a detector reports when it finds one.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace LocationDetector {

struct Location {
    std::wstring name;      // the device's display name
    // How the location is reached: the UNC root "\\<hostname>" of the device. The backup product reaches
    // network storage through file shares, and every service browsed for (SMB, the base stations' disks,
    // a storage maker's own) and every NAS found over UPnP serves them; a share name is not announced by
    // any of them, so the root is as far as a support engineer can be pointed.
    std::wstring path;
    std::wstring hostname;  // the device's host name, or its address when it announced no name
    std::string raw;        // what the device said about itself, as it said it (may be empty)
};

using LocationPtr = std::shared_ptr<const Location>;
using Locations = std::vector<LocationPtr>;

// One answer of one device: the location plus the IPv4 addresses it was seen at, by which answers of
// different protocols from the same device are joined.
struct Finding {
    Location location;
    std::vector<std::string> addresses;  // dotted-quad text
};

}  // namespace LocationDetector
