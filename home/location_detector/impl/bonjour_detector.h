// The multicast DNS detector: browses for the storage service types on every multicast-capable IPv4
// interface with one-shot queries (RFC 6762 section 5.1) and reports one location per service instance.
#pragma once

#include <array>
#include <memory>
#include <string_view>

#include "home/location_detector/impl/detector.h"

namespace LocationDetector {

namespace Net {
class SocketLayer;
}

// Windows file sharing, the base stations' disks, and a storage maker's own service.
inline constexpr std::array<std::string_view, 3> kBonjourServiceTypes = {
    "_smb._tcp.local.", "_airport._tcp.local.", "_qsan-storage._tcp.local."};

class BonjourDetector final : public ThreadedDetector {
public:
    // `includeLinkLocal`: search through interfaces that only have a link-local address as well.
    BonjourDetector(SearchTiming timing, bool includeLinkLocal);
    ~BonjourDetector() override;

private:
    SearchBody MakeSearch() override;

    bool includeLinkLocal_;
    std::shared_ptr<Net::SocketLayer> sockets_;
};

}  // namespace LocationDetector
