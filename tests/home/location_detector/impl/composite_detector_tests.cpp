// The threaded search (search time, cap, stop) and the composite detector that joins the answers of
// several detectors into one location per device.
#include "home/location_detector/impl/composite_detector.h"

#include <gtest/gtest.h>

#include <thread>

#include "home/location_detector/impl/utils.h"
#include "tests/home/location_detector/impl/detector_test_support.h"

namespace {

using namespace LocationDetector;
using namespace std::chrono_literals;
using LocationTests::WaitingObserver;

Finding Found(std::wstring name, std::wstring hostname, std::string raw, std::vector<std::string> addresses) {
    Finding finding;
    finding.location = {std::move(name), L"\\\\" + hostname, hostname, std::move(raw)};
    finding.addresses = std::move(addresses);
    return finding;
}

// A detector whose search the test writes as a function.
class ScriptedDetector final : public ThreadedDetector {
public:
    ScriptedDetector(SearchTiming timing, std::function<void(SearchContext&)> script)
        : ThreadedDetector(timing), script_(std::move(script)) {}

private:
    SearchBody MakeSearch() override { return script_; }
    std::function<void(SearchContext&)> script_;
};

TEST(ThreadedDetectorTest, ListWaitsOnlyForWhatRemainsOfTheSearchTime) {
    ScriptedDetector detector({300ms, 2000ms}, [](SearchContext& context) { context.SleepUntil(context.Cap()); });
    auto start = Clock::now();
    detector.Start();
    detector.GetLocations();
    auto waited = Clock::now() - start;
    EXPECT_GE(waited, 290ms);
    EXPECT_LT(waited, 1500ms);
    start = Clock::now();
    detector.GetLocations();
    EXPECT_LT(Clock::now() - start, 100ms) << "the search time is over";
}

TEST(ThreadedDetectorTest, StopEndsTheSearchAndTheWait) {
    auto sawStop = std::make_shared<std::atomic<bool>>(false);
    auto start = Clock::now();
    {
        ScriptedDetector detector({10000ms, 10000ms}, [sawStop](SearchContext& context) {
            while (context.Searching()) context.SleepUntil(Clock::now() + 50ms);
            *sawStop = context.Stopping();
        });
        detector.Start();
        std::thread stopper([&] {
            std::this_thread::sleep_for(100ms);
            detector.Stop();
        });
        detector.GetLocations();
        stopper.join();
    }
    EXPECT_LT(Clock::now() - start, 2000ms);
    EXPECT_TRUE(*sawStop);
}

TEST(ThreadedDetectorTest, DestructionWaitsForTheSearchToEnd) {
    // A search that takes a while to notice the stop, as one inside a bounded download would; none may
    // be left running after its detector, where it could log after logging has shut down.
    auto ended = std::make_shared<std::atomic<bool>>(false);
    {
        ScriptedDetector detector({100ms, 100ms}, [ended](SearchContext& context) {
            std::this_thread::sleep_for(500ms);
            context.Report(Found(L"late", L"10.0.0.9", "", {}));
            *ended = true;
        });
        detector.Start();
    }
    EXPECT_TRUE(*ended);
}

TEST(ThreadedDetectorTest, TheCapEndsASearchThatKeepsSleeping) {
    struct Seen { std::atomic<bool> awake{true}, stopping{false}, searching{true}, ended{false}; };
    auto seen = std::make_shared<Seen>();
    ScriptedDetector detector({100ms, 200ms}, [seen](SearchContext& context) {
        // Nobody asks for a stop: only the cap can cut this sleep short.
        seen->awake = context.SleepUntil(Clock::now() + 10s);
        seen->stopping = context.Stopping();
        seen->searching = context.Searching();
        seen->ended = true;
    });
    auto start = Clock::now();
    detector.Start();
    while (!seen->ended && Clock::now() - start < 5s) std::this_thread::sleep_for(10ms);
    EXPECT_GE(Clock::now() - start, 290ms);
    EXPECT_LT(Clock::now() - start, 1500ms);
    EXPECT_FALSE(seen->awake);
    EXPECT_TRUE(seen->stopping);
    EXPECT_FALSE(seen->searching);
}

TEST(MergeFindingTest, OneDevicePerAddressOrHostName) {
    std::vector<Finding> devices;
    MergeFinding(devices, Found(L"DiskStation", L"10.0.0.5", "<root/>", {"10.0.0.5"}));
    MergeFinding(devices, Found(L"Living Room", L"10.0.0.6", "<root/>", {"10.0.0.6"}));
    // The same device over multicast DNS: a host name replaces the bare address, with its path.
    MergeFinding(devices, Found(L"Office", L"ds.local", "Service: Office._smb._tcp.local.", {"10.0.0.5", "10.0.1.5"}));
    // Its second service: same host name in another case, no address.
    MergeFinding(devices, Found(L"Office Time Machine", L"DS.local", "Service: Office._airport._tcp.local.", {}));
    // The first answer again.
    MergeFinding(devices, Found(L"DiskStation", L"10.0.0.5", "<root/>", {"10.0.0.5"}));
    // Another interface's address of the device.
    MergeFinding(devices, Found(L"DiskStation", L"10.0.1.5", "<root/>", {"10.0.1.5"}));

    ASSERT_EQ(devices.size(), 2u);
    const Location& nas = devices[0].location;
    EXPECT_EQ(nas.name, L"DiskStation");
    EXPECT_EQ(nas.hostname, L"ds.local");
    EXPECT_EQ(nas.path, L"\\\\ds.local");
    EXPECT_EQ(nas.raw, "<root/>\r\n\r\nService: Office._smb._tcp.local.\r\n\r\nService: Office._airport._tcp.local.");
    EXPECT_EQ(devices[0].addresses, (std::vector<std::string>{"10.0.0.5", "10.0.1.5"}));
    EXPECT_EQ(devices[1].location.name, L"Living Room");
}

TEST(MergeFindingTest, AHostNameIsNotReplacedByAnAddressNorByAnotherName) {
    std::vector<Finding> devices;
    MergeFinding(devices, Found(L"", L"nas.local", "", {"10.0.0.5"}));
    MergeFinding(devices, Found(L"Vault", L"10.0.0.5", "", {"10.0.0.5"}));
    MergeFinding(devices, Found(L"Other", L"vault.local", "", {"10.0.0.5"}));
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].location.name, L"Vault") << "an empty name is filled";
    EXPECT_EQ(devices[0].location.hostname, L"nas.local");
}

TEST(CompositeDetectorTest, RunsItsDetectorsSideBySideAndJoinsTheirAnswers) {
    SearchTiming timing{600ms, 1000ms};
    auto upnp = std::make_shared<ScriptedDetector>(timing, [](SearchContext& context) {
        context.Report(Found(L"DiskStation", L"10.0.0.5", "<root/>", {"10.0.0.5"}));
        context.SleepUntil(context.SearchEnd());
    });
    auto bonjour = std::make_shared<ScriptedDetector>(timing, [](SearchContext& context) {
        context.SleepUntil(Clock::now() + 100ms);
        context.Report(Found(L"Office", L"ds.local", "Service: Office._smb._tcp.local.", {"10.0.0.5"}));
        context.Report(Found(L"Capsule", L"capsule.local", "Service: Capsule._airport._tcp.local.", {"10.0.0.8"}));
        context.SleepUntil(context.SearchEnd());
    });
    auto observer = std::make_shared<WaitingObserver>();
    CompositeDetector composite({upnp, bonjour});
    composite.AddObserver(observer);
    auto start = Clock::now();
    composite.Start();
    Locations locations = composite.GetLocations();
    EXPECT_LT(Clock::now() - start, 1000ms) << "the searches ran at the same time";
    ASSERT_EQ(locations.size(), 2u);
    EXPECT_EQ(locations[0]->name, L"DiskStation");
    EXPECT_EQ(locations[0]->hostname, L"ds.local");
    EXPECT_EQ(locations[1]->name, L"Capsule");
    EXPECT_EQ(observer->Found().size(), 3u) << "observers hear every answer";
}

TEST(CompositeDetectorTest, DestructionStopsAllDetectorsFirst) {
    auto start = Clock::now();
    {
        SearchTiming timing{10000ms, 1000ms};
        // Each takes half a second to finish after the stop: stopped together, they end together.
        auto script = [](SearchContext& context) {
            while (context.Searching()) context.SleepUntil(Clock::now() + 20ms);
            std::this_thread::sleep_for(500ms);
        };
        CompositeDetector composite({std::make_shared<ScriptedDetector>(timing, script),
                                     std::make_shared<ScriptedDetector>(timing, script)});
        composite.Start();
    }
    EXPECT_LT(Clock::now() - start, 850ms);
}

TEST(AddressTest, StrictDottedQuadsAndShortenedIpv6) {
    for (const char* bad : {"1.2.3", "1.2.3.4.5", "1.2.3.256", "1..3.4", " 1.2.3.4", "1.2.3.4 ", "0001.2.3.4", "+1.2.3.4", "a.b.c.d"})
        EXPECT_FALSE(ParseIpv4(bad)) << bad;
    // RFC 5952: the first of two equally long runs of zeros is shortened, a single zero group never.
    EXPECT_EQ(FormatIpv6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1}), "2001:db8::1:0:0:1");
    EXPECT_EQ(FormatIpv6({0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0}), "1:0:1:0:1:0:1:0");
}

}  // namespace
