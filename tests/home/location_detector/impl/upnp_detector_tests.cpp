// UPnP NAS detection: the classification of description documents, the settings checks with their
// log lines, and the search loop over a fake network.
#include "home/location_detector/impl/upnp_detector.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include "tests/home/location_detector/impl/detector_test_support.h"
#include "tests/home/location_detector/impl/log_capture.h"

namespace {

using namespace LocationDetector;
using LocationTests::LogCapture;
using LocationTests::WaitingObserver;

constexpr const char* kMediaServer = "urn:schemas-upnp-org:device:MediaServer:1";
constexpr const char* kNas = "urn:schemas-upnp-org:device:NAS:1";
constexpr const char* kWiNas = "urn:schemas-upnp-org:device:WiNAS:1";
constexpr const char* kSoho = "urn:schemas-lenovo-com:device:sohodevice:1";
constexpr const char* kDlink = "urn:www-dlink-com:device:NetworkAttachedStorage:1";
constexpr const char* kBasic = "urn:schemas-upnp-org:device:Basic:1";

std::string Document(const std::string& deviceType, const std::string& name = "Box", const std::string& manufacturer = "Nobody",
                     const std::string& category = "") {
    std::string document =
        "<?xml version=\"1.0\"?>\r\n<root xmlns=\"urn:schemas-upnp-org:device-1-0\">\r\n<device>\r\n"
        "<deviceType>" + deviceType + "</deviceType>\r\n"
        "<friendlyName>" + name + "</friendlyName>\r\n"
        "<manufacturer>" + manufacturer + "</manufacturer>\r\n";
    if (!category.empty()) document += "<pnpx:X_deviceCategory>" + category + "</pnpx:X_deviceCategory>\r\n";
    return document + "</device>\r\n</root>\r\n";
}

// The URNs of the table's other rows are checked through the settings' log lines below; a media server
// named after a vendor, a plain one, type 0 and forced type 1 against a real media server in network_tests.sh.
TEST(IsNasDeviceTest, Decides) {
    const struct {
        const char* what;
        std::string document;
        int urnDeviceType;
        bool nas;
    } cases[] = {
        // pnpx:X_deviceCategory
        {"Storage.NAS among other categories, any device type",
         Document(kBasic, "Box", "Nobody", "MediaDevices Storage.NAS Multimedia.DMS"), -1, true},
        {"Storage.NAS wins over a forced type", Document(kBasic, "Box", "Nobody", "Storage.NAS"), 3, true},
        {"the category is matched case-sensitively", Document(kBasic, "Box", "Nobody", "storage.nas"), -1, false},
        // default algorithm: the NAS URNs
        {"NAS URN", Document(kNas), -1, true},
        {"a trailing blank in deviceType", Document(std::string(kNas) + " "), -1, false},
        {"URNs compare case-sensitively", Document("urn:schemas-upnp-org:device:nas:1"), -1, false},
        // default algorithm: media servers of NAS vendors
        {"Synology media server (manufacturer upper-cased)", Document(kMediaServer, "DiskStation", "Synology Inc."), -1, true},
        {"a vendor name inside another word counts", Document(kMediaServer, "Crowd Player", "Example Media"), -1, true},
        {"a huge value is searched whole", Document(kMediaServer, std::string(200000, 'x') + "netgear"), -1, true},
        {"vendor on a device that is no media server", Document(kBasic, "DiskStation", "Synology Inc."), -1, false},
        {"media server URN with a trailing blank", Document(std::string(kMediaServer) + " ", "DiskStation", "Synology Inc."), -1, false},
        // URN type 0 and out-of-range types
        {"type 0 takes a document without tags", "not xml at all", 0, true},
        {"type 7 behaves as 0", Document(kBasic), 7, true},
        {"type -2 behaves as 0", Document(kBasic), -2, true},
        // forced types match the URN one place down the table
        {"forced 1 does not match the NAS URN", Document(kNas), 1, false},
        {"forced 4 matches the soho device", Document(kSoho), 4, true},
        {"forced 4 does not match its own table entry", Document(kDlink), 4, false},
        {"forced types ignore vendors", Document(kWiNas, "Synology", "Synology"), 1, false},
        // text search
        {"attributes on the opening tag", "<root><device><deviceType xmlns:x=\"y\">" + std::string(kNas) + "</deviceType></device></root>", -1, true},
        {"no closing tag", "<root><device><deviceType>" + std::string(kNas) + "</device></root>", -1, false},
        {"the first deviceType (the root device's) decides", Document(kBasic, "Hub") + "<deviceType>" + kNas + "</deviceType>", -1, false},
    };
    for (const auto& c : cases) {
        DeviceDescription device;
        EXPECT_EQ(UpnpDetector::IsNasDevice(device, c.document, c.urnDeviceType), c.nas) << c.what;
    }
}

TEST(XmlTextForDisplayTest, ReplacesEntitiesAndCutsAtCharacterBoundaries) {
    EXPECT_EQ(XmlTextForDisplay("Tom&apos;s &amp; Jerry&#39;s &lt;NAS&gt; &#xE9;&#233; &bogus; &#0;", 100),
              "Tom's & Jerry's <NAS> \xC3\xA9\xC3\xA9 &bogus; &#0;");
    // The limit falls inside the second character: the first is kept whole, the second dropped whole.
    EXPECT_EQ(XmlTextForDisplay("a\xE6\x97\xA5&#x65E5;", 5), "a\xE6\x97\xA5");
}

// One round of a fake search: how the request went out on each interface, and the answers that follow.
struct FakeRound {
    std::vector<SsdpSearch::Status> statuses;
    std::vector<UpnpDevice> answers;
};

// A network whose answers the test writes in advance.
class FakeNetwork final : public UpnpNetwork {
public:
    Common::Error startError;
    bool interfacesFail = false;
    std::vector<Net::NetworkInterface> interfaces{{"eth0", {10, 0, 0, 2}}};
    std::deque<FakeRound> rounds;  // one per request sent; then requests without answers
    std::map<std::string, std::string> documents;
    std::set<std::string> silent;  // descriptions that never come: their downloads last until their deadline

    Common::Error StartError() const override { return startError; }

    std::vector<Net::NetworkInterface> Interfaces() override {
        if (interfacesFail) throw Common::ErrorException(Common::Error::Make(0x4000b, L"no interfaces today"));
        return interfaces;
    }

    std::unique_ptr<SsdpSearch> OpenSearch(const std::vector<Ipv4Address>& addresses) override {
        std::lock_guard guard(lock_);
        for (const Ipv4Address& address : addresses) searched_.push_back(FormatIpv4(address));
        return std::make_unique<Search>(*this);
    }

    Common::Error Download(const std::string& url, Clock::time_point deadline, const std::function<bool()>& stopping,
                           std::string& document) override {
        EXPECT_FALSE(stopping());
        EXPECT_LE(deadline, Clock::now() + UpnpDetector::kDownloadTime);
        std::unique_lock guard(lock_);
        downloads_.push_back(url);
        if (silent.count(url)) {
            ++hanging_;
            while (Clock::now() < deadline && !stopping()) changed_.wait_for(guard, std::chrono::milliseconds(20));
            --hanging_;
            return Common::Error::Make(0x4000b, L"The answer did not come in time.");
        }
        auto found = documents.find(url);
        if (found == documents.end()) return Common::Error::Make(0x4000b, L"connection refused");
        document = found->second;
        return {};
    }

    std::vector<std::string> Searched() {
        std::lock_guard guard(lock_);
        return searched_;
    }
    size_t Sends() {
        std::lock_guard guard(lock_);
        return sends_;
    }
    std::multiset<std::string> Downloads() {
        std::lock_guard guard(lock_);
        return {downloads_.begin(), downloads_.end()};
    }
    int Hanging() {
        std::lock_guard guard(lock_);
        return hanging_;
    }

private:
    class Search final : public SsdpSearch {
    public:
        explicit Search(FakeNetwork& network) : network_(network) {}
        std::vector<Status> Send(int mxSeconds) override {
            EXPECT_GE(mxSeconds, 1);
            std::lock_guard guard(network_.lock_);
            ++network_.sends_;
            std::vector<Status> statuses(network_.searched_.size(), Status::Ok);
            if (network_.rounds.empty()) return statuses;
            FakeRound round = network_.rounds.front();
            network_.rounds.pop_front();
            pending_ = round.answers;
            if (!round.statuses.empty()) statuses = round.statuses;
            return statuses;
        }
        // Answers at once, then nothing until `until`, as a quiet network would.
        std::vector<UpnpDevice> Receive(Clock::time_point until, const std::function<bool()>& stopping) override {
            std::unique_lock guard(network_.lock_);
            while (pending_.empty() && Clock::now() < until && !stopping())
                network_.changed_.wait_until(guard, std::min(until, Clock::now() + std::chrono::milliseconds(20)));
            return std::exchange(pending_, {});
        }

    private:
        FakeNetwork& network_;
        std::vector<UpnpDevice> pending_;
    };

    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<std::string> searched_;
    size_t sends_ = 0;
    std::vector<std::string> downloads_;
    int hanging_ = 0;
};

FakeRound Answer(std::initializer_list<std::string> locations, const std::string& usn = "uuid:x::upnp:rootdevice") {
    FakeRound round;
    for (const std::string& location : locations) round.answers.push_back({location, usn});
    return round;
}

size_t Count(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
    return count;
}

TEST(UpnpSettingsTest, FallBacksAndWarningsInTheirOrder) {
    const std::string invalid = "Warning! Ivalid UrnDeviceType setted. Ignoring. Failing back to all types.";
    const std::string omit = "Warning! Ommit urn is setted. All upnp devices will be detected as NAS.";
    const std::string forced = "Warning! upnp urn detection is forced by: ";
    struct Case {
        int timeout, type, usedTimeout, usedType;
        std::vector<std::pair<std::string, std::string>> lines;  // severity, text: every line, in order
    };
    const Case cases[] = {
        {0, -1, 15, -1, {{"warning", "Warning! Discover time out setted to zero. Omitting. Falling back to defaults."},
                         {"information", "Using default upnp detection algorithm."}}},
        {3, 5, 3, 0, {{"warning", invalid}, {"warning", omit}}},
        {3, -2, 3, 0, {{"warning", invalid}, {"warning", omit}}},
        // The line names the URN of the type's own index; the match uses the one before it.
        {5, 1, 5, 1, {{"warning", forced + kNas}}},
        {5, 2, 5, 2, {{"warning", forced + kWiNas}}}, {5, 3, 5, 3, {{"warning", forced + kSoho}}},
        {5, 4, 5, 4, {{"warning", forced + kDlink}}},
    };
    for (const Case& c : cases) {
        LogCapture log;
        UpnpDetector detector(true, c.timeout, c.type, std::make_shared<FakeNetwork>());
        EXPECT_EQ(detector.DiscoverTimeout(), c.usedTimeout) << c.type;
        EXPECT_EQ(detector.UrnDeviceType(), c.usedType) << c.type;
        std::string text = log.Text();
        EXPECT_EQ(Count(text, "Warning!") + Count(text, "Using default"), c.lines.size()) << text;
        size_t after = 0;
        for (const auto& [severity, line] : c.lines) {
            EXPECT_TRUE(log.Has(severity, line)) << line << "\n" << text;
            EXPECT_GE(text.find(line), after) << line;
            after = text.find(line);
        }
    }
}

TEST(UpnpSearchTest, LogsEveryAnswerOnceAndFetchesEveryDescriptionOnce) {
    LogCapture log;
    auto network = std::make_shared<FakeNetwork>();
    const std::string nas = "http://10.0.0.5:5000/desc.xml", plain = "http://10.0.0.6:8200/rootDesc.xml";
    // A repeated answer counts once; a second root device behind the same description is logged apart.
    FakeRound first = Answer({nas, plain, nas});
    first.answers.push_back({nas, "uuid:y::upnp:rootdevice"});
    network->rounds = {first, Answer({nas})};
    network->documents[nas] = Document(kMediaServer, "Disk &amp; Station", "Synology Inc.");
    network->documents[plain] = Document(kMediaServer, "Living Room Server", "Example Media");
    auto observer = std::make_shared<WaitingObserver>();
    {
        UpnpDetector detector(true, 3, -1, network);
        detector.AddObserver(observer);
        detector.Start();
        Locations locations = detector.GetLocations();
        ASSERT_EQ(locations.size(), 1u);
        EXPECT_EQ(locations[0]->name, L"Disk & Station");
        EXPECT_EQ(locations[0]->hostname, L"10.0.0.5");
        EXPECT_EQ(locations[0]->path, L"\\\\10.0.0.5");
        EXPECT_EQ(locations[0]->raw, network->documents[nas]);
    }
    ASSERT_EQ(observer->Found().size(), 1u);
    EXPECT_EQ(observer->Found()[0].addresses, std::vector<std::string>{"10.0.0.5"});
    EXPECT_EQ(network->Downloads(), (std::multiset<std::string>{nas, plain}));
    EXPECT_GE(network->Sends(), 2u) << "searches repeat during the search time";
    EXPECT_EQ(Count(log.Text(), "Discovered upnp device: " + nas), 2u) << log.Text();
    EXPECT_EQ(Count(log.Text(), "Discovered upnp device: " + plain), 1u) << log.Text();
    EXPECT_TRUE(log.Has("debug", "+Found NAS device by vendor: Disk & Station, Synology Inc.")) << log.Text();
    EXPECT_TRUE(log.Has("debug", std::string("-Found not a NAS device: Living Room Server Urn = ") + kMediaServer +
                                     " Vendor=  Example Media")) << log.Text();
}

TEST(UpnpSearchTest, ASilentDeviceHoldsUpNoOther) {
    auto network = std::make_shared<FakeNetwork>();
    const std::string silent = "http://10.0.0.7/desc.xml", nas = "http://10.0.0.5:5000/desc.xml";
    network->rounds = {Answer({silent, nas})};
    network->silent = {silent};
    network->documents[nas] = Document(kNas, "Vault");
    auto observer = std::make_shared<WaitingObserver>();
    UpnpDetector detector(true, 1, -1, network);
    detector.AddObserver(observer);
    detector.Start();
    ASSERT_TRUE(observer->WaitFor(1, std::chrono::seconds(10)));
    EXPECT_EQ(network->Hanging(), 1) << "the NAS waited for the silent device's download to end";
}

TEST(UpnpSearchTest, DevicesBeyondTheLimitAreLoggedAndCounted) {
    LogCapture log;
    auto network = std::make_shared<FakeNetwork>();
    FakeRound round;
    for (int i = 0; i < 5; ++i) {
        std::string url = "http://10.0.0." + std::to_string(10 + i) + "/desc.xml";
        round.answers.push_back({url, "uuid:" + std::to_string(i)});
        network->documents[url] = Document(kNas, "NAS " + std::to_string(i));
    }
    network->rounds = {round};
    {
        UpnpDetector detector(true, 1, -1, network, 3);
        detector.Start();
        EXPECT_EQ(detector.GetLocations().size(), 3u);
    }
    EXPECT_EQ(network->Downloads().size(), 3u);
    EXPECT_EQ(Count(log.Text(), "Discovered upnp device: "), 5u) << log.Text();
    EXPECT_TRUE(log.Has("warning", "2 answering upnp devices were not examined: a search examines at most 3 within its time."))
        << log.Text();
}

TEST(UpnpSearchTest, DescriptionsBeyondTheRawLimitAreLeftOut) {
    LogCapture log;
    auto network = std::make_shared<FakeNetwork>();
    FakeRound round;
    for (int i = 0; i < 6; ++i) {
        std::string url = "http://10.0.0." + std::to_string(10 + i) + "/desc.xml";
        round.answers.push_back({url, ""});
        network->documents[url] = Document(kNas, "NAS " + std::to_string(i), "Nobody");
        network->documents[url].resize(1024 * 1024, ' ');
    }
    network->rounds = {round};
    UpnpDetector detector(true, 1, -1, network);
    detector.Start();
    Locations locations = detector.GetLocations();
    ASSERT_EQ(locations.size(), 6u);
    // The downloads run side by side, so which four fit depends on the order they end in.
    size_t whole = 0;
    for (const LocationPtr& location : locations) {
        EXPECT_TRUE(location->raw.empty() || location->raw.size() == 1024 * 1024u);
        whole += !location->raw.empty();
    }
    EXPECT_EQ(whole, 4u);
    EXPECT_EQ(Count(log.Text(), "further devices are reported without theirs."), 1u) << log.Text();
}

TEST(UpnpSearchTest, RetriesAfterAFailedSend) {
    LogCapture log;
    auto network = std::make_shared<FakeNetwork>();
    const std::string nas = "http://10.0.0.5:5000/desc.xml";
    network->rounds = {FakeRound{{SsdpSearch::Status::SendFailed}, {}}, Answer({nas})};
    network->documents[nas] = Document(kNas, "Vault", "Nobody");
    auto observer = std::make_shared<WaitingObserver>();
    UpnpDetector detector(true, 8, -1, network);
    detector.AddObserver(observer);
    auto start = Clock::now();
    detector.Start();
    ASSERT_TRUE(observer->WaitFor(1, std::chrono::seconds(10)));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(2500)) << "the retry waits several seconds";
    EXPECT_TRUE(log.Has("warning", "Cannot send MSearch request. Retry after several seconds.")) << log.Text();
}

TEST(UpnpSearchTest, FailuresAreLogLinesOnly) {
    struct Case {
        const char* what;
        std::function<void(FakeNetwork&)> setUp;
        std::string line, severity;
        bool endsAtOnce;
    };
    const Case cases[] = {
        {"discovery cannot start", [](FakeNetwork& n) { n.rounds = {{{SsdpSearch::Status::OpenFailed}, {}}}; },
         "upnpOpenDiscover failed", "[error]", false},
        {"no interface list", [](FakeNetwork& n) { n.interfacesFail = true; }, "upnpOpenDiscover failed: no interfaces today",
         "[error]", true},
        {"no socket layer",
         [](FakeNetwork& n) { n.startError = Common::Error::Make(0x4000b, L"Cannot start Winsock 2.2.", Common::Error::AddWindowsError(10091)); },
         "Cannot start the Windows socket layer: Cannot start Winsock 2.2.", "[error]", true},
        {"unreadable description", [](FakeNetwork& n) { n.rounds = {Answer({"http://10.0.0.9:1/none.xml"})}; },
         "Cannot read the description of http://10.0.0.9:1/none.xml: connection refused", "[warning]", false},
    };
    for (const Case& c : cases) {
        LogCapture log;
        auto network = std::make_shared<FakeNetwork>();
        c.setUp(*network);
        UpnpDetector detector(true, c.endsAtOnce ? 5 : 1, 0, network);
        auto start = Clock::now();
        detector.Start();
        EXPECT_TRUE(detector.GetLocations().empty()) << c.what;
        if (c.endsAtOnce) {
            EXPECT_LT(Clock::now() - start, std::chrono::seconds(2)) << c.what;
            EXPECT_EQ(network->Sends(), 0u) << c.what;
        }
        std::string text = log.Text();
        size_t at = text.find(c.line);
        ASSERT_NE(at, std::string::npos) << c.what << "\n" << text;
        size_t lineStart = text.rfind('\n', at);
        EXPECT_NE(text.substr(lineStart + 1, at - lineStart).find(c.severity), std::string::npos) << c.what << "\n" << text;
    }
}

TEST(UpnpSearchTest, EveryInterfaceAtOnceLinkLocalOnesWhenAsked) {
    // 169.254.0.x and 169.254.255.x lie outside the link-local range that a host picks from.
    const std::pair<Net::NetworkInterface, bool> table[] = {
        {{"eth0", {192, 168, 1, 20}}, false}, {{"eth1", {169, 254, 1, 0}}, true},   {{"eth2", {169, 254, 0, 255}}, false},
        {{"eth3", {169, 254, 254, 255}}, true}, {{"eth4", {169, 254, 255, 0}}, false}, {{"eth5", {10, 0, 0, 1}}, false},
        {{"eth6", {10, 0, 0, 2}}, false},     {{"eth7", {10, 0, 0, 3}}, false}};
    for (bool includeLinkLocal : {false, true}) {
        auto network = std::make_shared<FakeNetwork>();
        std::vector<std::string> expected;
        network->interfaces.clear();
        for (const auto& [where, linkLocal] : table) {
            network->interfaces.push_back(where);
            if (includeLinkLocal || !linkLocal) expected.push_back(FormatIpv4(where.address));
        }
        {
            UpnpDetector detector(includeLinkLocal, 1, -1, network);
            detector.Start();
            detector.GetLocations();
        }
        EXPECT_EQ(network->Searched(), expected) << "one search goes through every interface";
    }
}

}  // namespace
