// SSDP (UPnP Device Architecture 1.1, section 1.3): the search request for root devices and the reader
// of the unicast answers to it. Pure functions over bytes; the sockets are the caller's.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "home/location_detector/impl/socket.h"

namespace LocationDetector {

// The multicast group and port that SSDP searches go to.
inline const Net::Endpoint kSsdpGroup{{239, 255, 255, 250}, 1900};

// One answer to an SSDP search.
struct UpnpDevice {
    std::string location;  // the LOCATION header: URL of the description document
    std::string usn;
};

// The M-SEARCH request for "upnp:rootdevice"; devices answer within `mxSeconds` (1 to 5).
std::string EncodeSearchRequest(int mxSeconds);

// A LOCATION longer than this is taken for garbage: real description URLs are far shorter, and each
// one ends up in the log.
constexpr std::size_t kMaxLocationBytes = 512;

// The device of an answer ("HTTP/1.1 200 OK" with a LOCATION header); empty for anything else.
std::optional<UpnpDevice> ParseSearchAnswer(std::string_view datagram);

}  // namespace LocationDetector
