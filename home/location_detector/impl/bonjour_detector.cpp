// The multicast DNS search: queries on every interface, answers decoded and collected into instances.
#include "home/location_detector/impl/bonjour_detector.h"

#include <algorithm>
#include <string>
#include <vector>

#include "core/common/log.h"
#include "home/location_detector/impl/dns_message.h"
#include "home/location_detector/impl/mdns_collector.h"
#include "home/location_detector/impl/socket.h"

namespace LocationDetector {
namespace {

const Net::Endpoint kMdnsGroup{{224, 0, 0, 251}, 5353};
// Queries are repeated with doubling intervals (RFC 6762 section 5.2), starting at one second.
constexpr std::chrono::milliseconds kFirstRepeat{1000};
constexpr std::chrono::milliseconds kSlice{100};
// RFC 6762 section 17: a multicast DNS packet may be up to 9000 octets.
constexpr std::size_t kMaxPacket = 9000;
// Keeps a query with follow-up questions well inside one Ethernet frame.
constexpr std::size_t kMaxFollowUps = 16;
constexpr int kMaxDatagramsPerWake = 64;
// Listening ends this long before the search time does, so that the instances still without an address
// are in the list by the time it is taken.
constexpr std::chrono::milliseconds kWrapUp{150};

struct InterfaceSocket {
    Net::NetworkInterface where;
    Net::Socket socket;
    bool sendFailureLogged = false;
};

std::vector<InterfaceSocket> OpenSockets(bool includeLinkLocal) {
    std::vector<InterfaceSocket> sockets;
    for (Net::NetworkInterface& where : Net::MulticastInterfaces()) {
        if (!includeLinkLocal && IsLinkLocal(where.address)) continue;
        Common::Error error = Common::CatchErrors([&] {
            // An ephemeral port makes this a one-shot query: responders answer by unicast to it, and
            // the program never competes for port 5353 with a responder on this machine.
            Net::Socket socket = Net::OpenUdp();
            Net::Bind(socket, {where.address, 0});
            Net::SetMulticastInterface(socket, where.address);
            Net::SetMulticastTtl(socket, 255);
            sockets.push_back({where, std::move(socket)});
        });
        if (error.Failed())
            Common::Log::WriteError(Common::Log::kWarning, "Cannot search for Bonjour services on " + where.name + " (" + FormatIpv4(where.address) + "): ", error);
    }
    return sockets;
}

void SendQuery(std::vector<InterfaceSocket>& sockets, const std::vector<std::uint8_t>& query) {
    for (InterfaceSocket& entry : sockets) {
        Common::Error error = Common::CatchErrors([&] { Net::SendTo(entry.socket, query, kMdnsGroup); });
        if (error.Failed() && !entry.sendFailureLogged) {
            entry.sendFailureLogged = true;
            Common::Log::WriteError(Common::Log::kWarning, "Cannot send a Bonjour query on " + entry.where.name + ": ", error);
        }
    }
}

void ReadAnswers(InterfaceSocket& entry, std::vector<std::uint8_t>& buffer, ServiceCollector& collector) {
    // A flood of datagrams must not keep the search from looking at its clock.
    for (int count = 0; count < kMaxDatagramsPerWake; ++count) {
        std::optional<Net::Datagram> datagram = Net::ReceiveFrom(entry.socket, buffer);
        if (!datagram) return;
        // Answers come from the multicast DNS port (RFC 6762 section 6); anything else is not one.
        if (datagram->from.port != kMdnsGroup.port) continue;
        Dns::DecodeResult decoded = Dns::Decode(std::span(buffer).first(datagram->size));
        if (!decoded.message) {
            Common::Log::Debug("Ignoring a malformed Bonjour answer from " + FormatIpv4(datagram->from.address) + ": " +
                               decoded.error + " at offset " + std::to_string(decoded.errorOffset));
            continue;
        }
        if (!decoded.message->IsResponse() || decoded.message->Opcode() != 0 || decoded.message->ResponseCode() != 0)
            continue;
        collector.Add(*decoded.message);
    }
}

void Report(SearchContext& context, std::vector<ServiceInstance> instances) {
    for (const ServiceInstance& instance : instances) {
        Finding finding = ToFinding(instance);
        Common::Log::Info("Discovered Bonjour service: " + instance.name.ToText() + " on " +
                          (instance.srv ? instance.srv->target.ToText() : std::string("?")));
        context.Report(finding);
    }
}

void Search(SearchContext& context, bool includeLinkLocal) {
    std::vector<Dns::Name> types;
    std::vector<Dns::Question> browse;
    for (std::string_view type : kBonjourServiceTypes) {
        types.push_back(Dns::Name::FromText(type));
        browse.push_back({types.back(), Dns::kTypePtr, Dns::kClassIn, false});
    }
    ServiceCollector collector(types);

    std::vector<InterfaceSocket> sockets = OpenSockets(includeLinkLocal);
    if (sockets.empty()) {
        Common::Log::Info("No network interface to search for Bonjour services.");
        return;
    }
    std::vector<const Net::Socket*> waitList;
    for (const InterfaceSocket& entry : sockets) waitList.push_back(&entry.socket);

    std::vector<std::uint8_t> buffer(kMaxPacket);
    Clock::time_point nextQuery = Clock::now();
    std::chrono::milliseconds interval = kFirstRepeat;
    const Clock::time_point listenEnd = context.SearchEnd() - kWrapUp;
    while (context.Searching() && Clock::now() < listenEnd) {
        if (Clock::now() >= nextQuery) {
            std::vector<Dns::Question> questions = browse;
            std::vector<Dns::Question> followUps = collector.FollowUpQuestions();
            if (followUps.size() > kMaxFollowUps) followUps.resize(kMaxFollowUps);
            questions.insert(questions.end(), followUps.begin(), followUps.end());
            SendQuery(sockets, Dns::EncodeQuery(0, questions));
            nextQuery = Clock::now() + interval;
            interval *= 2;
        }
        auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::min(nextQuery, listenEnd) - Clock::now());
        for (std::size_t index : Net::WaitReadable(waitList, std::clamp(wait, std::chrono::milliseconds(0), kSlice)))
            ReadAnswers(sockets[index], buffer, collector);
        Report(context, collector.TakeResolved());
    }
    if (!context.Stopping()) Report(context, collector.TakeRest());
}

}  // namespace

BonjourDetector::BonjourDetector(SearchTiming timing, bool includeLinkLocal)
    : ThreadedDetector(timing), includeLinkLocal_(includeLinkLocal), sockets_(std::make_shared<Net::SocketLayer>()) {
    if (!sockets_->Started())
        Common::Log::WriteError(Common::Log::kError, "Cannot start the socket layer for Bonjour: ", sockets_->StartError());
}

BonjourDetector::~BonjourDetector() = default;

ThreadedDetector::SearchBody BonjourDetector::MakeSearch() {
    return [sockets = sockets_, includeLinkLocal = includeLinkLocal_](SearchContext& context) {
        if (!sockets->Started()) return;
        Search(context, includeLinkLocal);
    };
}

}  // namespace LocationDetector
