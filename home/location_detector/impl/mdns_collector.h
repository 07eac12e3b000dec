// Turns decoded multicast DNS answers into service instances (RFC 6763 browsing: PTR to the instance,
// SRV and TXT of the instance, A and AAAA of the SRV target), and an instance into a found location.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "home/location_detector/impl/dns_message.h"
#include "home/location_detector/impl/location.h"

namespace LocationDetector {

struct ServiceInstance {
    Dns::Name name;         // "My NAS._smb._tcp.local."
    Dns::Name serviceType;  // "_smb._tcp.local."
    std::optional<Dns::SrvData> srv;
    std::vector<std::string> txt;
    std::vector<Ipv4Address> addresses;
    std::vector<Ipv6Address> addresses6;

    // The instance's own label: "My NAS".
    const std::string& Label() const { return name.labels.front(); }
};

class ServiceCollector {
public:
    // Bounds on what one search keeps, whatever the network sends.
    static constexpr std::size_t kMaxInstances = 64;
    static constexpr std::size_t kMaxNames = 256;
    static constexpr std::size_t kMaxAddressesPerHost = 8;

    explicit ServiceCollector(std::vector<Dns::Name> serviceTypes);

    // Records of every section count alike (RFC 6762 section 6 answers put the SRV, TXT and
    // addresses among the additional records).
    void Add(const Dns::Message& message);

    // Instances not handed out yet whose SRV target has an IPv4 address.
    std::vector<ServiceInstance> TakeResolved();
    // Instances not handed out yet that have at least their SRV record; for the end of a search.
    std::vector<ServiceInstance> TakeRest();
    // Questions for what is still missing: SRV and TXT of instances, A of their targets.
    std::vector<Dns::Question> FollowUpQuestions() const;

private:
    ServiceInstance Resolve(const std::string& key) const;
    void AddRecord(const Dns::Record& record);

    std::vector<Dns::Name> serviceTypes_;
    std::vector<std::string> instanceOrder_;  // keys in the order the instances were first seen
    std::map<std::string, ServiceInstance> instances_;
    std::map<std::string, Dns::SrvData> srv_;
    std::map<std::string, std::vector<std::string>> txt_;
    std::map<std::string, std::vector<Ipv4Address>> a_;
    std::map<std::string, std::vector<Ipv6Address>> aaaa_;
    std::set<std::string> handedOut_;
};

// The location of an instance: its label as the name, the SRV target (without the final dot) as the
// host name, "\\<host name>" as the path, and the records in readable form as the raw text.
Finding ToFinding(const ServiceInstance& instance);

}  // namespace LocationDetector
