// The UPnP detector: SSDP searches for root devices, their description documents, and the decision
// whether a device is network-attached storage.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/error.h"
#include "home/location_detector/impl/detector.h"
#include "home/location_detector/impl/socket.h"

namespace LocationDetector {

// One answer to an SSDP search.
struct UpnpDevice {
    std::string location;  // the LOCATION header: URL of the description document
    std::string searchTarget;
    std::string usn;
};

// The values of a description document that the classification reads, as they stand in the text.
struct DeviceDescription {
    std::string deviceType;
    std::string friendlyName;
    std::string manufacturer;
    std::string category;  // pnpx:X_deviceCategory
};

// The network side of the search, behind a seam so that the search can be tried without a network.
class UpnpNetwork {
public:
    // Unfinished: the search had not ended when the caller stopped waiting for it.
    enum class DiscoverStatus { Ok, SendFailed, OpenFailed, Unfinished };
    struct Discovery {
        DiscoverStatus status = DiscoverStatus::Ok;
        std::vector<UpnpDevice> devices;  // in the order they answered
    };

    virtual ~UpnpNetwork() = default;
    // How the socket layer's start-up went; the search finds nothing after a failure.
    virtual Common::Error StartError() const = 0;
    virtual std::vector<Net::NetworkInterface> Interfaces() = 0;
    // Searches for "upnp:rootdevice" through every interface of `interfaces` (their addresses) at once,
    // each search collecting answers for `delay`. Returns one discovery per interface, in their order,
    // by `deadline`, or soon after `stopping` turns true. A search that has not ended by then is left
    // to end on its own, and its interface is Unfinished (and not searched again) until it has.
    virtual std::vector<Discovery> Discover(const std::vector<Ipv4Address>& interfaces, std::chrono::milliseconds delay,
                                            Clock::time_point deadline, const std::function<bool()>& stopping) = 0;
    // The description document at `url`, fetched by `deadline` at the latest.
    virtual Common::Error Download(const std::string& url, Clock::time_point deadline,
                                   const std::function<bool()>& stopping, std::string& document) = 0;
};

// The real network: miniupnpc's SSDP search and the bounded HTTP GET; starts the socket layer.
std::shared_ptr<UpnpNetwork> MakeUpnpNetwork();

class UpnpDetector final : public ThreadedDetector {
public:
    static constexpr std::int32_t kDefaultDiscoverTimeout = 15;
    // How long a description download may take, and so how far past the search time the cap lies.
    static constexpr std::chrono::milliseconds kDownloadTime{4000};
    // The description documents kept as raw text, all devices together; a NAS found beyond it is
    // reported without its document. The search examines at most 256 devices, so this leaves each
    // 16 KiB, several times what a real device sends (a few KiB), while devices that send documents
    // of the download limit (1 MiB) fill it with four.
    static constexpr std::size_t kMaxRawBytes = 4 * 1024 * 1024;

    // `includeLinkLocal`: search through interfaces whose address lies in the link-local range as well
    // (a storage device plugged straight into the machine has no other).
    // `discoverTimeout`: the search time in seconds; 0 gives the default of 15.
    // `urnDeviceType`: -1 the default algorithm, 0 every device, 1 to 4 one forced device type.
    // `network`: null for the real one.
    UpnpDetector(bool includeLinkLocal, std::int32_t discoverTimeout, std::int32_t urnDeviceType,
                 std::shared_ptr<UpnpNetwork> network = nullptr);

    std::int32_t DiscoverTimeout() const { return discoverTimeout_; }
    std::int32_t UrnDeviceType() const { return urnDeviceType_; }

    // Reads the document's values into `device` and decides whether it describes a NAS. A type other
    // than -1 and 1 to 4 counts as 0.
    static bool IsNasDevice(DeviceDescription& device, std::string_view document, std::int32_t urnDeviceType);

private:
    SearchBody MakeSearch() override;

    bool includeLinkLocal_;
    std::int32_t discoverTimeout_;
    std::int32_t urnDeviceType_;
    std::shared_ptr<UpnpNetwork> network_;
};

// The text of an XML element's content as a person reads it: the five predefined entities and
// numeric character references replaced, cut to `maxBytes` at a character boundary.
std::string XmlTextForDisplay(std::string_view text, std::size_t maxBytes);

}  // namespace LocationDetector
