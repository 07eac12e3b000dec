// The real network of the UPnP detector: miniupnpc's SSDP search and the bounded description download.
#include <miniupnpc/miniupnpc.h>

#include <algorithm>

#include "home/location_detector/impl/http_get.h"
#include "home/location_detector/impl/upnp_detector.h"

namespace LocationDetector {
namespace {

// UDA 1.1 section 1.1.2: the TTL of SSDP packets should default to 2.
constexpr unsigned char kSsdpTtl = 2;

class MiniupnpcNetwork final : public UpnpNetwork {
public:
    Common::Error StartError() const override { return sockets_.StartError(); }

    std::vector<Net::NetworkInterface> Interfaces() override { return Net::MulticastInterfaces(); }

    Discovery Discover(const Ipv4Address& interfaceAddress, std::chrono::milliseconds delay) override {
        const std::string multicastInterface = FormatIpv4(interfaceAddress);
        int error = UPNPDISCOVER_SUCCESS;
        // An empty socket path keeps miniupnpc from asking a local SSDP daemon, whose cached answers
        // would not say which interface they came from; every search goes to the network.
        std::unique_ptr<UPNPDev, void (*)(UPNPDev*)> list(
            upnpDiscoverDevice("upnp:rootdevice", static_cast<int>(delay.count()), multicastInterface.c_str(), "",
                               UPNP_LOCAL_PORT_ANY, 0, kSsdpTtl, &error),
            &freeUPNPDevlist);
        Discovery discovery;
        for (const UPNPDev* device = list.get(); device; device = device->pNext) {
            discovery.devices.push_back({device->descURL ? device->descURL : "", device->st ? device->st : "",
                                         device->usn ? device->usn : ""});
        }
        // miniupnpc puts each new answer at the head of its list.
        std::reverse(discovery.devices.begin(), discovery.devices.end());
        // A socket error ends a search whose request could not go out (or whose socket could not be
        // made); any other error means the search could not be set up at all.
        if (discovery.devices.empty() && error == UPNPDISCOVER_SOCKET_ERROR)
            discovery.status = DiscoverStatus::SendFailed;
        else if (discovery.devices.empty() && error != UPNPDISCOVER_SUCCESS)
            discovery.status = DiscoverStatus::OpenFailed;
        return discovery;
    }

    Common::Error Download(const std::string& url, Clock::time_point deadline, const std::function<bool()>& stopping,
                           std::string& document) override {
        std::optional<HttpUrl> parsed = ParseHttpUrl(url);
        if (!parsed) {
            return Common::Error::Make(Common::Codes::kUnexpected,
                                       L"The description URL is not an http URL with an IPv4 address.");
        }
        HttpLimits limits;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        limits.totalTime = std::clamp(left, std::chrono::milliseconds(0), limits.totalTime);
        return HttpGet(*parsed, limits, stopping, document);
    }

private:
    Net::SocketLayer sockets_;
};

}  // namespace

std::shared_ptr<UpnpNetwork> MakeUpnpNetwork() { return std::make_shared<MiniupnpcNetwork>(); }

}  // namespace LocationDetector
