// The real network of the UPnP detector: miniupnpc's SSDP search, one worker thread per interface, and
// the bounded description download.
#include <miniupnpc/miniupnpc.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "home/location_detector/impl/http_get.h"
#include "home/location_detector/impl/upnp_detector.h"

namespace LocationDetector {
namespace {

// UDA 1.1 section 1.1.2: the TTL of SSDP packets should default to 2.
constexpr unsigned char kSsdpTtl = 2;
// How long one wait for the workers may last before the stop request is looked at again.
constexpr std::chrono::milliseconds kSlice{100};

using Discovery = UpnpNetwork::Discovery;
using DiscoverStatus = UpnpNetwork::DiscoverStatus;

// miniupnpc 2.2.4 waits its delay afresh after every answer it has seen before, without looking at
// the time, so a device that repeats its answer faster than the delay holds a search for as long as
// it likes. Each search therefore runs on a worker thread of its own that is waited for only until
// the round's deadline. A worker shares nothing but its round (where it leaves its answers) and the
// socket layer, so one left behind is harmless: it writes into memory it co-owns and logs nothing.
struct Round {
    std::mutex lock;
    std::condition_variable ended;
    std::vector<std::optional<Discovery>> results;  // one per interface, empty until its search ends
};

Discovery SearchThrough(const std::string& multicastInterface, int delayMs) {
    int error = UPNPDISCOVER_SUCCESS;
    // An empty socket path keeps miniupnpc from asking a local SSDP daemon, whose cached answers
    // would not say which interface they came from; every search goes to the network.
    std::unique_ptr<UPNPDev, void (*)(UPNPDev*)> list(
        upnpDiscoverDevice("upnp:rootdevice", delayMs, multicastInterface.c_str(), "", UPNP_LOCAL_PORT_ANY, 0, kSsdpTtl,
                           &error),
        &freeUPNPDevlist);
    Discovery discovery;
    for (const UPNPDev* device = list.get(); device; device = device->pNext) {
        discovery.devices.push_back(
            {device->descURL ? device->descURL : "", device->st ? device->st : "", device->usn ? device->usn : ""});
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

class MiniupnpcNetwork final : public UpnpNetwork {
public:
    Common::Error StartError() const override { return sockets_->StartError(); }

    std::vector<Net::NetworkInterface> Interfaces() override { return Net::MulticastInterfaces(); }

    std::vector<Discovery> Discover(const std::vector<Ipv4Address>& interfaces, std::chrono::milliseconds delay,
                                    Clock::time_point deadline, const std::function<bool()>& stopping) override {
        auto round = std::make_shared<Round>();
        round->results.resize(interfaces.size());
        std::vector<Discovery> discoveries(interfaces.size());
        std::vector<bool> running(interfaces.size(), false);
        for (std::size_t i = 0; i < interfaces.size(); ++i) {
            if (StillSearching(interfaces[i])) {
                discoveries[i].status = DiscoverStatus::Unfinished;
                continue;
            }
            try {
                std::thread([round, i, sockets = sockets_, where = FormatIpv4(interfaces[i]),
                             delayMs = static_cast<int>(delay.count())] {
                    Discovery discovery = SearchThrough(where, delayMs);
                    std::lock_guard guard(round->lock);
                    round->results[i] = std::move(discovery);
                    round->ended.notify_all();
                }).detach();
                running[i] = true;
            } catch (const std::system_error&) {
                discoveries[i].status = DiscoverStatus::OpenFailed;
            }
        }

        std::unique_lock guard(round->lock);
        auto allEnded = [&] {
            for (std::size_t i = 0; i < interfaces.size(); ++i) {
                if (running[i] && !round->results[i]) return false;
            }
            return true;
        };
        while (!allEnded() && !stopping() && Clock::now() < deadline)
            round->ended.wait_until(guard, std::min(deadline, Clock::now() + kSlice));
        for (std::size_t i = 0; i < interfaces.size(); ++i) {
            if (!running[i]) continue;
            if (round->results[i]) {
                discoveries[i] = std::move(*round->results[i]);
            } else {
                discoveries[i].status = DiscoverStatus::Unfinished;
                leftBehind_[interfaces[i]] = {round, i};
            }
        }
        return discoveries;
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
    // Whether the search that an earlier round left behind on `where` is still running.
    bool StillSearching(const Ipv4Address& where) {
        auto found = leftBehind_.find(where);
        if (found == leftBehind_.end()) return false;
        bool searching;
        {
            const auto& [round, index] = found->second;
            std::lock_guard guard(round->lock);
            searching = !round->results[index];
        }
        if (!searching) leftBehind_.erase(found);
        return searching;
    }

    // Shared with the workers, so that Winsock stays started while any of them runs.
    std::shared_ptr<Net::SocketLayer> sockets_ = std::make_shared<Net::SocketLayer>();
    std::map<Ipv4Address, std::pair<std::shared_ptr<Round>, std::size_t>> leftBehind_;
};

}  // namespace

std::shared_ptr<UpnpNetwork> MakeUpnpNetwork() { return std::make_shared<MiniupnpcNetwork>(); }

}  // namespace LocationDetector
