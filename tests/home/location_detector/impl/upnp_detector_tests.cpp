// UPnP NAS detection: the classification of description documents, the settings checks with their
// log lines, and the search loop over a fake network.
#include "home/location_detector/impl/upnp_detector.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <mutex>

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

std::string Document(const std::string& deviceType, const std::string& name, const std::string& manufacturer,
                     const std::string& category = "") {
    std::string document =
        "<?xml version=\"1.0\"?>\r\n<root xmlns=\"urn:schemas-upnp-org:device-1-0\">\r\n<device>\r\n"
        "<deviceType>" + deviceType + "</deviceType>\r\n"
        "<friendlyName>" + name + "</friendlyName>\r\n"
        "<manufacturer>" + manufacturer + "</manufacturer>\r\n";
    if (!category.empty()) document += "<pnpx:X_deviceCategory>" + category + "</pnpx:X_deviceCategory>\r\n";
    return document + "</device>\r\n</root>\r\n";
}

struct ClassificationCase {
    const char* what;
    std::string document;
    int urnDeviceType;
    bool nas;
};

class IsNasDeviceTest : public ::testing::TestWithParam<ClassificationCase> {};

TEST_P(IsNasDeviceTest, Decides) {
    const ClassificationCase& c = GetParam();
    DeviceDescription device;
    EXPECT_EQ(UpnpDetector::IsNasDevice(device, c.document, c.urnDeviceType), c.nas) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Documents, IsNasDeviceTest,
    ::testing::Values(
        // pnpx:X_deviceCategory
        ClassificationCase{"Storage.NAS among other categories, any device type",
                           Document("urn:schemas-upnp-org:device:Basic:1", "Box", "Nobody", "MediaDevices Storage.NAS Multimedia.DMS"), -1, true},
        ClassificationCase{"Storage.NAS wins over a forced type",
                           Document("urn:schemas-upnp-org:device:Basic:1", "Box", "Nobody", "Storage.NAS"), 3, true},
        ClassificationCase{"the category is matched case-sensitively",
                           Document("urn:schemas-upnp-org:device:Basic:1", "Box", "Nobody", "storage.nas"), -1, false},
        // default algorithm: the NAS URNs
        ClassificationCase{"NAS URN", Document(kNas, "Box", "Nobody"), -1, true},
        ClassificationCase{"WiNAS URN", Document(kWiNas, "Box", "Nobody"), -1, true},
        ClassificationCase{"soho device URN", Document(kSoho, "Box", "Nobody"), -1, true},
        ClassificationCase{"network attached storage URN", Document(kDlink, "Box", "Nobody"), -1, true},
        ClassificationCase{"a trailing blank in deviceType", Document(std::string(kNas) + " ", "Box", "Nobody"), -1, false},
        ClassificationCase{"URNs compare case-sensitively", Document("urn:schemas-upnp-org:device:nas:1", "Box", "Nobody"), -1, false},
        // default algorithm: media servers of NAS vendors
        ClassificationCase{"Synology media server (manufacturer upper-cased)", Document(kMediaServer, "DiskStation", "Synology Inc."), -1, true},
        ClassificationCase{"vendor in the friendly name", Document(kMediaServer, "My Qnap TS-251", "Example Media"), -1, true},
        ClassificationCase{"FRITZ!Box", Document(kMediaServer, "FRITZ!Box 7590 Media", "AVM"), -1, true},
        ClassificationCase{"a vendor name inside another word counts", Document(kMediaServer, "Crowd Player", "Example Media"), -1, true},
        ClassificationCase{"plain media server", Document(kMediaServer, "Living Room Server", "Example Media"), -1, false},
        ClassificationCase{"vendor on a device that is no media server", Document("urn:schemas-upnp-org:device:Basic:1", "DiskStation", "Synology Inc."), -1, false},
        ClassificationCase{"media server URN with a trailing blank", Document(std::string(kMediaServer) + " ", "DiskStation", "Synology Inc."), -1, false},
        // URN type 0 and out-of-range types
        ClassificationCase{"type 0 takes every device", Document("urn:schemas-upnp-org:device:Basic:1", "Router", "Nobody"), 0, true},
        ClassificationCase{"type 0 takes a document without tags", "not xml at all", 0, true},
        ClassificationCase{"type 7 behaves as 0", Document("urn:schemas-upnp-org:device:Basic:1", "Router", "Nobody"), 7, true},
        ClassificationCase{"type -2 behaves as 0", Document("urn:schemas-upnp-org:device:Basic:1", "Router", "Nobody"), -2, true},
        // forced types match the URN one place down the table
        ClassificationCase{"forced 1 matches a media server", Document(kMediaServer, "Living Room Server", "Example Media"), 1, true},
        ClassificationCase{"forced 1 does not match the NAS URN", Document(kNas, "Box", "Nobody"), 1, false},
        ClassificationCase{"forced 2 matches the NAS URN", Document(kNas, "Box", "Nobody"), 2, true},
        ClassificationCase{"forced 2 does not match WiNAS", Document(kWiNas, "Box", "Nobody"), 2, false},
        ClassificationCase{"forced 4 matches the soho device", Document(kSoho, "Box", "Nobody"), 4, true},
        ClassificationCase{"forced 4 does not match its own table entry", Document(kDlink, "Box", "Nobody"), 4, false},
        ClassificationCase{"forced types ignore vendors", Document(kWiNas, "Synology", "Synology"), 1, false},
        // text search
        ClassificationCase{"attributes on the opening tag",
                           "<root><device><deviceType xmlns:x=\"y\">" + std::string(kNas) + "</deviceType></device></root>", -1, true},
        ClassificationCase{"no closing tag", "<root><device><deviceType>" + std::string(kNas) + "</device></root>", -1, false},
        ClassificationCase{"no tags at all", "", -1, false},
        ClassificationCase{"the first deviceType (the root device's) decides",
                           Document("urn:schemas-upnp-org:device:Basic:1", "Hub", "Nobody") + "<deviceType>" + kNas + "</deviceType>", -1, false}),
    [](const ::testing::TestParamInfo<ClassificationCase>& info) { return "Case" + std::to_string(info.index); });

TEST(IsNasDeviceValuesTest, ReadsTheFourValuesAndSearchesHugeOnesWhole) {
    std::string name(200000, 'x');
    name += "netgear";
    DeviceDescription device;
    EXPECT_TRUE(UpnpDetector::IsNasDevice(device, Document(kMediaServer, name, "Nobody", "MediaDevices"), -1));
    EXPECT_EQ(device.deviceType, kMediaServer);
    EXPECT_EQ(device.friendlyName, name);
    EXPECT_EQ(device.manufacturer, "Nobody");
    EXPECT_EQ(device.category, "MediaDevices");
}

TEST(IsNasDeviceLogTest, LogsVendorMatchesAndRefusalsAtDebugLevel) {
    LogCapture log;
    ASSERT_TRUE(log.Active());
    DeviceDescription device;
    UpnpDetector::IsNasDevice(device, Document(kMediaServer, "DiskStation", "Synology Inc."), -1);
    UpnpDetector::IsNasDevice(device, Document(kMediaServer, "Living Room Server", "Example Media"), -1);
    EXPECT_TRUE(log.Has("debug", "+Found NAS device by vendor: DiskStation, Synology Inc.")) << log.Text();
    EXPECT_TRUE(log.Has("debug", std::string("-Found not a NAS device: Living Room Server Urn = ") + kMediaServer +
                                     " Vendor=  Example Media"))
        << log.Text();
}

TEST(XmlTextForDisplayTest, ReplacesEntitiesAndCutsAtCharacterBoundaries) {
    EXPECT_EQ(XmlTextForDisplay("Tom&apos;s &amp; Jerry&#39;s &lt;NAS&gt; &#xE9;&#233; &bogus; &#0;", 100),
              "Tom's & Jerry's <NAS> \xC3\xA9\xC3\xA9 &bogus; &#0;");
    EXPECT_EQ(XmlTextForDisplay("ab\xC3\xA9", 3), "ab");
    EXPECT_EQ(XmlTextForDisplay("a\xE6\x97\xA5", 4), "a\xE6\x97\xA5");
    EXPECT_EQ(XmlTextForDisplay("abc&#x65E5;", 4), "abc");
}

// A network whose answers the test writes in advance.
class FakeNetwork final : public UpnpNetwork {
public:
    Common::Error startError;
    bool interfacesFail = false;
    std::vector<Net::NetworkInterface> interfaces{{"eth0", {10, 0, 0, 2}}};
    std::deque<Discovery> discoveries;  // one per Discover call; then empty answers
    std::map<std::string, std::string> documents;

    Common::Error StartError() const override { return startError; }

    std::vector<Net::NetworkInterface> Interfaces() override {
        if (interfacesFail) throw Common::ErrorException(Common::Error::Make(0x4000b, L"no interfaces today"));
        return interfaces;
    }

    Discovery Discover(const Ipv4Address& interfaceAddress, std::chrono::milliseconds delay) override {
        std::lock_guard guard(lock_);
        searchedOn_.push_back(FormatIpv4(interfaceAddress));
        delays_.push_back(delay);
        if (discoveries.empty()) return {};
        Discovery next = discoveries.front();
        discoveries.pop_front();
        return next;
    }

    Common::Error Download(const std::string& url, Clock::time_point deadline, const std::function<bool()>& stopping,
                           std::string& document) override {
        std::lock_guard guard(lock_);
        downloads_.push_back(url);
        EXPECT_FALSE(stopping());
        EXPECT_LE(deadline, Clock::now() + UpnpDetector::kDownloadTime);
        auto found = documents.find(url);
        if (found == documents.end()) return Common::Error::Make(0x4000b, L"connection refused");
        document = found->second;
        return {};
    }

    std::vector<std::string> SearchedOn() {
        std::lock_guard guard(lock_);
        return searchedOn_;
    }
    std::vector<std::string> Downloads() {
        std::lock_guard guard(lock_);
        return downloads_;
    }
    std::vector<std::chrono::milliseconds> Delays() {
        std::lock_guard guard(lock_);
        return delays_;
    }

private:
    std::mutex lock_;
    std::vector<std::string> searchedOn_;
    std::vector<std::string> downloads_;
    std::vector<std::chrono::milliseconds> delays_;
};

UpnpNetwork::Discovery Answer(std::initializer_list<const char*> locations) {
    UpnpNetwork::Discovery discovery;
    for (const char* location : locations) discovery.devices.push_back({location, "upnp:rootdevice", "uuid:x::upnp:rootdevice"});
    return discovery;
}

TEST(UpnpSettingsTest, ZeroTimeOutFallsBackToFifteen) {
    LogCapture log;
    UpnpDetector detector(true, 0, -1, std::make_shared<FakeNetwork>());
    EXPECT_EQ(detector.DiscoverTimeout(), 15);
    EXPECT_TRUE(log.Has("warning", "Warning! Discover time out setted to zero. Omitting. Falling back to defaults.")) << log.Text();
    EXPECT_TRUE(log.Has("information", "Using default upnp detection algorithm.")) << log.Text();
}

TEST(UpnpSettingsTest, OutOfRangeTypesBecomeZeroWithBothWarnings) {
    for (int type : {7, 5, -2}) {
        LogCapture log;
        UpnpDetector detector(true, 3, type, std::make_shared<FakeNetwork>());
        EXPECT_EQ(detector.UrnDeviceType(), 0);
        EXPECT_EQ(detector.DiscoverTimeout(), 3);
        std::string text = log.Text();
        EXPECT_TRUE(log.Has("warning", "Warning! Ivalid UrnDeviceType setted. Ignoring. Failing back to all types.")) << text;
        EXPECT_TRUE(log.Has("warning", "Warning! Ommit urn is setted. All upnp devices will be detected as NAS.")) << text;
        EXPECT_LT(text.find("Ivalid"), text.find("Ommit"));
        EXPECT_EQ(text.find("Discover time out"), std::string::npos);
    }
}

TEST(UpnpSettingsTest, ForcedTypesNameTheUrnOfTheirOwnIndex) {
    const std::pair<int, const char*> cases[] = {{1, kNas}, {2, kWiNas}, {3, kSoho}, {4, kDlink}};
    for (const auto& [type, urn] : cases) {
        LogCapture log;
        UpnpDetector detector(true, 5, type, std::make_shared<FakeNetwork>());
        EXPECT_EQ(detector.UrnDeviceType(), type);
        EXPECT_TRUE(log.Has("warning", std::string("Warning! upnp urn detection is forced by: ") + urn)) << log.Text();
    }
}

TEST(UpnpSearchTest, ReportsNasDevicesOnceWithTheirDescription) {
    LogCapture log;
    auto network = std::make_shared<FakeNetwork>();
    const char* nas = "http://10.0.0.5:5000/desc.xml";
    const char* plain = "http://10.0.0.6:8200/rootDesc.xml";
    network->discoveries = {Answer({nas, plain, nas}), Answer({nas})};
    network->documents[nas] = Document(kMediaServer, "Disk &amp; Station", "Synology Inc.");
    network->documents[plain] = Document(kMediaServer, "Living Room Server", "Example Media");
    auto observer = std::make_shared<WaitingObserver>();
    {
        UpnpDetector detector(true, 2, -1, network);
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
    EXPECT_EQ(network->Downloads(), (std::vector<std::string>{nas, plain}));
    EXPECT_GE(network->SearchedOn().size(), 2u) << "searches repeat during the search time";
    for (auto delay : network->Delays()) {
        EXPECT_GE(delay, std::chrono::milliseconds(1000));
        EXPECT_LE(delay, std::chrono::milliseconds(2000));
    }
    EXPECT_TRUE(log.Has("information", std::string("Discovered upnp device: ") + nas)) << log.Text();
    EXPECT_TRUE(log.Has("information", std::string("Discovered upnp device: ") + plain)) << log.Text();
}

TEST(UpnpSearchTest, RetriesAfterAFailedSend) {
    LogCapture log;
    auto network = std::make_shared<FakeNetwork>();
    const char* nas = "http://10.0.0.5:5000/desc.xml";
    network->discoveries = {UpnpNetwork::Discovery{UpnpNetwork::DiscoverStatus::SendFailed, {}}, Answer({nas})};
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

TEST(UpnpSearchTest, FailuresToStartAreLogLinesOnly) {
    {
        LogCapture log;
        auto network = std::make_shared<FakeNetwork>();
        network->discoveries = {UpnpNetwork::Discovery{UpnpNetwork::DiscoverStatus::OpenFailed, {}}};
        UpnpDetector detector(true, 1, -1, network);
        detector.Start();
        EXPECT_TRUE(detector.GetLocations().empty());
        EXPECT_TRUE(log.Has("error", "upnpOpenDiscover failed")) << log.Text();
    }
    {
        LogCapture log;
        auto network = std::make_shared<FakeNetwork>();
        network->interfacesFail = true;
        UpnpDetector detector(true, 5, -1, network);
        auto start = Clock::now();
        detector.Start();
        EXPECT_TRUE(detector.GetLocations().empty());
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(2)) << "a search that cannot start ends at once";
        EXPECT_NE(log.Text().find("upnpOpenDiscover failed: no interfaces today"), std::string::npos) << log.Text();
    }
}

TEST(UpnpSearchTest, AFailingSocketLayerIsOnlyLogged) {
    LogCapture log;
    auto network = std::make_shared<FakeNetwork>();
    network->startError = Common::Error::Make(0x4000b, L"Cannot start Winsock 2.2.", Common::Error::AddWindowsError(10091));
    UpnpDetector detector(true, 5, -1, network);
    auto start = Clock::now();
    detector.Start();
    EXPECT_TRUE(detector.GetLocations().empty());
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
    EXPECT_TRUE(network->SearchedOn().empty());
    EXPECT_NE(log.Text().find("[error]"), std::string::npos);
    EXPECT_NE(log.Text().find("Cannot start the Windows socket layer: Cannot start Winsock 2.2."), std::string::npos) << log.Text();
}

TEST(UpnpSearchTest, LinkLocalInterfacesOnlyWhenAsked) {
    for (bool includeLinkLocal : {false, true}) {
        auto network = std::make_shared<FakeNetwork>();
        network->interfaces = {{"eth0", {192, 168, 1, 20}}, {"eth1", {169, 254, 7, 9}}, {"eth2", {169, 254, 0, 9}}};
        {
            UpnpDetector detector(includeLinkLocal, 1, -1, network);
            detector.Start();
            detector.GetLocations();
        }
        std::vector<std::string> searched = network->SearchedOn();
        // 169.254.0.x lies outside the link-local range that a host picks from; it counts as ordinary.
        std::vector<std::string> expected = includeLinkLocal
                                                ? std::vector<std::string>{"192.168.1.20", "169.254.7.9", "169.254.0.9"}
                                                : std::vector<std::string>{"192.168.1.20", "169.254.0.9"};
        searched.resize(std::min(searched.size(), expected.size()));
        EXPECT_EQ(searched, expected);
    }
}

TEST(UpnpSearchTest, UnreadableDescriptionsAreLoggedAndSkipped) {
    LogCapture log;
    auto network = std::make_shared<FakeNetwork>();
    network->discoveries = {Answer({"http://10.0.0.9:1/none.xml"})};
    UpnpDetector detector(true, 1, 0, network);
    detector.Start();
    EXPECT_TRUE(detector.GetLocations().empty());
    std::string text = log.Text();
    EXPECT_NE(text.find("[warning]"), std::string::npos) << text;
    EXPECT_NE(text.find("Cannot read the description of http://10.0.0.9:1/none.xml: connection refused"), std::string::npos) << text;
}

}  // namespace
