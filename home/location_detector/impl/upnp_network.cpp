// The real network of the UPnP detector: SSDP searches over the detectors' own sockets, and the bounded
// description download.
#include <algorithm>
#include <optional>

#include "home/location_detector/impl/http_get.h"
#include "home/location_detector/impl/upnp_detector.h"

namespace LocationDetector {
namespace {

// UDA 1.1 section 1.1.2: the TTL of SSDP packets should default to 2.
constexpr int kSsdpTtl = 2;
// UDA 1.1 section 1.3.2 asks control points to send a search more than once, as UDP may lose it.
constexpr int kRequestCopies = 2;
// How long one wait for answers may last before the stop request is looked at again.
constexpr std::chrono::milliseconds kSlice{100};
// An answer is a few hundred bytes; a larger datagram is cut, which leaves its headers unreadable.
constexpr std::size_t kMaxDatagram = 2048;
// A flood of datagrams must not keep the search from looking at its clock.
constexpr int kMaxDatagramsPerWake = 64;

class SocketSearch final : public SsdpSearch {
public:
    explicit SocketSearch(const std::vector<Ipv4Address>& interfaces) {
        for (const Ipv4Address& address : interfaces) {
            Net::Socket socket;
            // Answers come by unicast to the port the request left from: an ephemeral port on the
            // interface's own address, so each interface's answers arrive on its own socket.
            Common::Error error = Common::CatchErrors([&] {
                socket = Net::OpenUdp();
                Net::Bind(socket, {address, 0});
                Net::SetMulticastInterface(socket, address);
                Net::SetMulticastTtl(socket, kSsdpTtl);
            });
            sockets_.push_back(error.Failed() ? Net::Socket() : std::move(socket));
        }
    }

    std::vector<Status> Send(int mxSeconds) override {
        std::string request = EncodeSearchRequest(mxSeconds);
        std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(request.data()), request.size());
        std::vector<Status> statuses;
        for (Net::Socket& socket : sockets_) {
            if (!socket.Valid()) {
                statuses.push_back(Status::OpenFailed);
                continue;
            }
            Common::Error error = Common::CatchErrors([&] {
                for (int copy = 0; copy < kRequestCopies; ++copy) Net::SendTo(socket, bytes, kSsdpGroup);
            });
            statuses.push_back(error.Failed() ? Status::SendFailed : Status::Ok);
        }
        return statuses;
    }

    std::vector<UpnpDevice> Receive(Clock::time_point until, const std::function<bool()>& stopping) override {
        std::vector<Net::Socket*> open;
        for (Net::Socket& socket : sockets_) {
            if (socket.Valid()) open.push_back(&socket);
        }
        const std::vector<const Net::Socket*> waitList(open.begin(), open.end());
        std::vector<UpnpDevice> devices;
        while (devices.empty() && !stopping()) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
            if (left.count() <= 0) break;
            for (std::size_t index : Net::WaitReadable(waitList, std::min(left, kSlice))) Read(*open[index], devices);
        }
        return devices;
    }

private:
    void Read(Net::Socket& socket, std::vector<UpnpDevice>& devices) {
        for (int count = 0; count < kMaxDatagramsPerWake; ++count) {
            std::optional<Net::Datagram> datagram;
            // An ICMP error from an earlier send surfaces here on some systems; it is no answer.
            if (Common::CatchErrors([&] { datagram = Net::ReceiveFrom(socket, buffer_); }).Failed() || !datagram) return;
            std::string_view text(reinterpret_cast<const char*>(buffer_.data()), datagram->size);
            if (std::optional<UpnpDevice> device = ParseSearchAnswer(text)) devices.push_back(std::move(*device));
        }
    }

    std::vector<Net::Socket> sockets_;  // one per interface; invalid where it could not be opened
    std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(kMaxDatagram);
};

class SocketNetwork final : public UpnpNetwork {
public:
    Common::Error StartError() const override { return sockets_.StartError(); }

    std::vector<Net::NetworkInterface> Interfaces() override { return Net::MulticastInterfaces(); }

    std::unique_ptr<SsdpSearch> OpenSearch(const std::vector<Ipv4Address>& interfaces) override {
        return std::make_unique<SocketSearch>(interfaces);
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

std::shared_ptr<UpnpNetwork> MakeUpnpNetwork() { return std::make_shared<SocketNetwork>(); }

}  // namespace LocationDetector
