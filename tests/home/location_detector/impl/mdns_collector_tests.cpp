// Service instances gathered from multicast DNS answers, and the locations made of them.
#include "home/location_detector/impl/mdns_collector.h"

#include <gtest/gtest.h>

namespace {

using namespace LocationDetector;

Dns::Name N(std::string_view text) { return Dns::Name::FromText(text); }

Dns::Record Ptr(std::string_view type, Dns::Name instance, std::uint32_t ttl = 4500) {
    return {N(type), Dns::kTypePtr, Dns::kClassIn, false, ttl, Dns::PtrData{std::move(instance)}};
}
Dns::Record Srv(Dns::Name instance, std::string_view target, std::uint16_t port = 445) {
    return {std::move(instance), Dns::kTypeSrv, Dns::kClassIn, true, 120, Dns::SrvData{0, 0, port, N(target)}};
}
Dns::Record Txt(Dns::Name instance, std::vector<std::string> strings) {
    return {std::move(instance), Dns::kTypeTxt, Dns::kClassIn, true, 4500, Dns::TxtData{std::move(strings)}};
}
Dns::Record A(std::string_view host, Ipv4Address address) {
    return {N(host), Dns::kTypeA, Dns::kClassIn, true, 120, Dns::AData{address}};
}
Dns::Message Answer(std::vector<Dns::Record> answers, std::vector<Dns::Record> additionals = {}) {
    Dns::Message message;
    message.flags = 0x8400;
    message.answers = std::move(answers);
    message.additionals = std::move(additionals);
    return message;
}

Dns::Name Instance(std::string label, std::string_view type = "_smb._tcp.local.") {
    Dns::Name name = N(type);
    name.labels.insert(name.labels.begin(), std::move(label));
    return name;
}

ServiceCollector Collector() { return ServiceCollector({N("_smb._tcp.local."), N("_airport._tcp.local.")}); }

TEST(ServiceCollectorTest, ResolvesAcrossMessagesAndAsksForWhatIsMissing) {
    ServiceCollector collector = Collector();
    collector.Add(Answer({Ptr("_smb._tcp.local.", Instance("Vault"))}));
    EXPECT_TRUE(collector.TakeResolved().empty());
    std::vector<Dns::Question> questions = collector.FollowUpQuestions();
    ASSERT_EQ(questions.size(), 2u);
    EXPECT_EQ(questions[0].type, Dns::kTypeSrv);
    EXPECT_EQ(questions[1].type, Dns::kTypeTxt);
    EXPECT_EQ(questions[0].name.ToText(), "Vault._smb._tcp.local.");

    // Owner names compare without regard to case.
    collector.Add(Answer({Srv(N("VAULT._SMB._tcp.local."), "vault.local."), Txt(Instance("Vault"), {"model=X"})}));
    EXPECT_TRUE(collector.TakeResolved().empty());
    questions = collector.FollowUpQuestions();
    ASSERT_EQ(questions.size(), 1u);
    EXPECT_EQ(questions[0].type, Dns::kTypeA);
    EXPECT_EQ(questions[0].name.ToText(), "vault.local.");

    collector.Add(Answer({}, {A("Vault.Local.", {10, 0, 0, 7}), A("vault.local.", {10, 0, 0, 7}), A("vault.local.", {10, 0, 1, 7})}));
    std::vector<ServiceInstance> resolved = collector.TakeResolved();
    ASSERT_EQ(resolved.size(), 1u);
    EXPECT_EQ(resolved[0].Label(), "Vault");
    EXPECT_EQ(resolved[0].txt, std::vector<std::string>{"model=X"});
    EXPECT_EQ(resolved[0].addresses.size(), 2u) << "the same address twice is kept once";
    EXPECT_TRUE(collector.TakeResolved().empty()) << "an instance is handed out once";
    EXPECT_TRUE(collector.TakeRest().empty());
    EXPECT_TRUE(collector.FollowUpQuestions().empty());
}

TEST(ServiceCollectorTest, IgnoresWhatIsNoInstanceOfTheBrowsedTypes) {
    ServiceCollector collector = Collector();
    collector.Add(Answer({Ptr("_http._tcp.local.", Instance("Web", "_http._tcp.local.")),
                          Ptr("_smb._tcp.local.", Instance("Other", "_afpovertcp._tcp.local.")),
                          Ptr("_smb._tcp.local.", N("_smb._tcp.local.")),
                          Ptr("_smb._tcp.local.", Instance("Leaving"), 0)},
                         {Srv(Instance("Web", "_http._tcp.local."), "web.local."), Srv(Instance("Leaving"), "gone.local."),
                          A("web.local.", {10, 0, 0, 1}), A("gone.local.", {10, 0, 0, 2})}));
    EXPECT_TRUE(collector.TakeResolved().empty());
    EXPECT_TRUE(collector.TakeRest().empty());
}

TEST(ServiceCollectorTest, TheRestIsThoseWithAnSrvRecord) {
    ServiceCollector collector = Collector();
    collector.Add(Answer({Ptr("_smb._tcp.local.", Instance("No Address")), Ptr("_airport._tcp.local.", Instance("Nothing", "_airport._tcp.local."))},
                         {Srv(Instance("No Address"), "quiet.local.")}));
    std::vector<ServiceInstance> rest = collector.TakeRest();
    ASSERT_EQ(rest.size(), 1u);
    EXPECT_EQ(rest[0].Label(), "No Address");
    EXPECT_TRUE(rest[0].addresses.empty());
}

TEST(ServiceCollectorTest, KeepsABoundedNumberOfInstances) {
    ServiceCollector collector = Collector();
    std::vector<Dns::Record> answers, additionals;
    for (int i = 0; i < 100; ++i) {
        answers.push_back(Ptr("_smb._tcp.local.", Instance("nas" + std::to_string(i))));
        additionals.push_back(Srv(Instance("nas" + std::to_string(i)), "h" + std::to_string(i) + ".local."));
    }
    collector.Add(Answer(answers, additionals));
    EXPECT_EQ(collector.TakeRest().size(), ServiceCollector::kMaxInstances);
}

TEST(ServiceFindingTest, NamePathHostAndRawText) {
    ServiceInstance instance;
    instance.name = Instance("B\xC3\xBC" "ro");
    instance.serviceType = N("_smb._tcp.local.");
    instance.srv = Dns::SrvData{0, 5, 445, N("buero-nas.local.")};
    instance.txt = {"model=Xserve", "path=/"};
    instance.addresses = {{192, 168, 1, 20}};
    instance.addresses6 = {{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x20}};
    Finding finding = ToFinding(instance);
    EXPECT_EQ(finding.location.name, L"B\u00FCro");
    EXPECT_EQ(finding.location.hostname, L"buero-nas.local");
    EXPECT_EQ(finding.location.path, L"\\\\buero-nas.local");
    EXPECT_EQ(finding.addresses, std::vector<std::string>{"192.168.1.20"});
    EXPECT_EQ(finding.location.raw,
              "Service: B\xC3\xBCro._smb._tcp.local.\r\n"
              "Target: buero-nas.local. port 445 priority 0 weight 5\r\n"
              "TXT: model=Xserve\r\n"
              "TXT: path=/\r\n"
              "Address: 192.168.1.20\r\n"
              "Address: fe80::20");
}

}  // namespace
