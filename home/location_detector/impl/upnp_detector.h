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
#include "home/location_detector/impl/ssdp.h"

namespace LocationDetector {

// The values of a description document that the classification reads, as they stand in the text.
struct DeviceDescription {
    std::string deviceType;
    std::string friendlyName;
    std::string manufacturer;
    std::string category;  // pnpx:X_deviceCategory
};

// One search through every interface at once: a socket per interface, held for the whole search time,
// so that an answer is taken whenever it comes.
class SsdpSearch {
public:
    enum class Status { Ok, SendFailed, OpenFailed };

    virtual ~SsdpSearch() = default;
    // Sends the search request through every interface; a status per interface, in their order.
    virtual std::vector<Status> Send(int mxSeconds) = 0;
    // The answers that arrived, as soon as there are some, else empty at `until` or soon after
    // `stopping` turns true. No answer moves `until`.
    virtual std::vector<UpnpDevice> Receive(Clock::time_point until, const std::function<bool()>& stopping) = 0;
};

// The network side of the search, behind a seam so that the search can be tried without a network.
class UpnpNetwork {
public:
    virtual ~UpnpNetwork() = default;
    // How the socket layer's start-up went; the search finds nothing after a failure.
    virtual Common::Error StartError() const = 0;
    virtual std::vector<Net::NetworkInterface> Interfaces() = 0;
    // A search through the interfaces with these addresses.
    virtual std::unique_ptr<SsdpSearch> OpenSearch(const std::vector<Ipv4Address>& interfaces) = 0;
    // The description document at `url`, fetched by `deadline` at the latest.
    virtual Common::Error Download(const std::string& url, Clock::time_point deadline,
                                   const std::function<bool()>& stopping, std::string& document) = 0;
};

// The real network: SSDP over the detectors' sockets and the bounded HTTP GET; starts the socket layer.
std::shared_ptr<UpnpNetwork> MakeUpnpNetwork();

class UpnpDetector final : public ThreadedDetector {
public:
    static constexpr std::int32_t kDefaultDiscoverTimeout = 15;
    // How long a description download may take, and so how far past the search time the cap lies.
    static constexpr std::chrono::milliseconds kDownloadTime{4000};
    // How many description documents are fetched at once.
    static constexpr std::size_t kDownloadThreads = 8;
    // The devices whose descriptions one search fetches; further ones are logged and counted only.
    // What an examined device leaves behind is its place in the search's lists and, for a NAS, its
    // document within kMaxRawBytes, so the bound is set by the time left for downloads, not memory.
    static constexpr std::size_t kMaxDevices = 1024;
    // The description documents kept as raw text, all devices together; a NAS found beyond it is
    // reported without its document. Real devices send a few KiB, so this keeps hundreds of them,
    // while devices that send documents of the download limit (1 MiB) fill it with four.
    static constexpr std::size_t kMaxRawBytes = 4 * 1024 * 1024;

    // `includeLinkLocal`: search through interfaces whose address lies in the link-local range as well
    // (a storage device plugged straight into the machine has no other).
    // `discoverTimeout`: the search time in seconds; 0 gives the default of 15.
    // `urnDeviceType`: -1 the default algorithm, 0 every device, 1 to 4 one forced device type.
    // `network`: null for the real one. `maxDevices`: the devices examined per search.
    UpnpDetector(bool includeLinkLocal, std::int32_t discoverTimeout, std::int32_t urnDeviceType,
                 std::shared_ptr<UpnpNetwork> network = nullptr, std::size_t maxDevices = kMaxDevices);

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
    std::size_t maxDevices_;
    std::shared_ptr<UpnpNetwork> network_;
};

// The text of an XML element's content as a person reads it: the five predefined entities and
// numeric character references replaced, cut to `maxBytes` at a character boundary.
std::string XmlTextForDisplay(std::string_view text, std::size_t maxBytes);

}  // namespace LocationDetector
