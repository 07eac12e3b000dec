// Service instances from multicast DNS answers.
#include "home/location_detector/impl/mdns_collector.h"

#include <algorithm>

#include "core/common/strings.h"

namespace LocationDetector {
namespace {

std::string Key(const Dns::Name& name) {
    std::string text = name.ToText();
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

// "My NAS._smb._tcp.local." is an instance of "_smb._tcp.local.": one label more, the rest the type.
bool IsInstanceOf(const Dns::Name& instance, const Dns::Name& type) {
    if (instance.labels.size() != type.labels.size() + 1 || instance.labels.front().empty()) return false;
    Dns::Name rest;
    rest.labels.assign(instance.labels.begin() + 1, instance.labels.end());
    return Dns::SameName(rest, type);
}

template <typename Address>
void AddAddress(std::vector<Address>& addresses, const Address& address, std::size_t limit) {
    if (addresses.size() < limit && std::find(addresses.begin(), addresses.end(), address) == addresses.end())
        addresses.push_back(address);
}

template <typename Map>
bool HasRoom(const Map& map, const std::string& key, std::size_t limit) {
    return map.size() < limit || map.count(key) != 0;
}

}  // namespace

ServiceCollector::ServiceCollector(std::vector<Dns::Name> serviceTypes) : serviceTypes_(std::move(serviceTypes)) {}

void ServiceCollector::Add(const Dns::Message& message) {
    for (const auto* section : {&message.answers, &message.authorities, &message.additionals}) {
        for (const Dns::Record& record : *section) AddRecord(record);
    }
}

void ServiceCollector::AddRecord(const Dns::Record& record) {
    if (record.klass != Dns::kClassIn) return;
    const std::string key = Key(record.name);
    if (const auto* ptr = std::get_if<Dns::PtrData>(&record.data)) {
        // A TTL of zero says goodbye (RFC 6762 section 10.1): the instance is going away.
        if (record.ttl == 0) return;
        for (const Dns::Name& type : serviceTypes_) {
            if (!Dns::SameName(record.name, type) || !IsInstanceOf(ptr->target, type)) continue;
            std::string instanceKey = Key(ptr->target);
            if (instances_.count(instanceKey) || instances_.size() >= kMaxInstances) return;
            ServiceInstance instance;
            instance.name = ptr->target;
            instance.serviceType = type;
            instances_.emplace(instanceKey, std::move(instance));
            instanceOrder_.push_back(instanceKey);
            return;
        }
    } else if (const auto* srv = std::get_if<Dns::SrvData>(&record.data)) {
        if (HasRoom(srv_, key, kMaxNames)) srv_[key] = *srv;
    } else if (const auto* txt = std::get_if<Dns::TxtData>(&record.data)) {
        if (HasRoom(txt_, key, kMaxNames)) txt_[key] = txt->strings;
    } else if (const auto* a = std::get_if<Dns::AData>(&record.data)) {
        if (HasRoom(a_, key, kMaxNames)) AddAddress(a_[key], a->address, kMaxAddressesPerHost);
    } else if (const auto* aaaa = std::get_if<Dns::AaaaData>(&record.data)) {
        if (HasRoom(aaaa_, key, kMaxNames)) AddAddress(aaaa_[key], aaaa->address, kMaxAddressesPerHost);
    }
}

ServiceInstance ServiceCollector::Resolve(const std::string& key) const {
    ServiceInstance instance = instances_.at(key);
    if (auto srv = srv_.find(key); srv != srv_.end()) {
        instance.srv = srv->second;
        std::string target = Key(srv->second.target);
        if (auto a = a_.find(target); a != a_.end()) instance.addresses = a->second;
        if (auto aaaa = aaaa_.find(target); aaaa != aaaa_.end()) instance.addresses6 = aaaa->second;
    }
    if (auto txt = txt_.find(key); txt != txt_.end()) instance.txt = txt->second;
    return instance;
}

std::vector<ServiceInstance> ServiceCollector::TakeResolved() {
    std::vector<ServiceInstance> resolved;
    for (const std::string& key : instanceOrder_) {
        if (handedOut_.count(key)) continue;
        ServiceInstance instance = Resolve(key);
        if (!instance.srv || instance.addresses.empty()) continue;
        handedOut_.insert(key);
        resolved.push_back(std::move(instance));
    }
    return resolved;
}

std::vector<ServiceInstance> ServiceCollector::TakeRest() {
    std::vector<ServiceInstance> rest;
    for (const std::string& key : instanceOrder_) {
        if (handedOut_.count(key)) continue;
        ServiceInstance instance = Resolve(key);
        if (!instance.srv) continue;
        handedOut_.insert(key);
        rest.push_back(std::move(instance));
    }
    return rest;
}

std::vector<Dns::Question> ServiceCollector::FollowUpQuestions() const {
    std::vector<Dns::Question> questions;
    for (const std::string& key : instanceOrder_) {
        if (handedOut_.count(key)) continue;
        ServiceInstance instance = Resolve(key);
        if (!instance.srv) {
            questions.push_back({instance.name, Dns::kTypeSrv, Dns::kClassIn, false});
            questions.push_back({instance.name, Dns::kTypeTxt, Dns::kClassIn, false});
        } else if (instance.addresses.empty()) {
            questions.push_back({instance.srv->target, Dns::kTypeA, Dns::kClassIn, false});
        }
    }
    return questions;
}

Finding ToFinding(const ServiceInstance& instance) {
    Finding finding;
    std::string host = instance.srv ? instance.srv->target.ToText() : std::string();
    if (!host.empty() && host.back() == '.') host.pop_back();
    finding.location.name = Common::Utf8ToWide(instance.Label());
    finding.location.hostname = Common::Utf8ToWide(host);
    finding.location.path = host.empty() ? std::wstring() : L"\\\\" + finding.location.hostname;

    std::string& raw = finding.location.raw;
    raw = "Service: " + instance.name.ToText();
    if (instance.srv) {
        raw += "\r\nTarget: " + instance.srv->target.ToText() + " port " + std::to_string(instance.srv->port) +
               " priority " + std::to_string(instance.srv->priority) + " weight " + std::to_string(instance.srv->weight);
    }
    for (const std::string& text : instance.txt) raw += "\r\nTXT: " + text;
    for (const Ipv4Address& address : instance.addresses) {
        raw += "\r\nAddress: " + FormatIpv4(address);
        finding.addresses.push_back(FormatIpv4(address));
    }
    for (const Ipv6Address& address : instance.addresses6) raw += "\r\nAddress: " + FormatIpv6(address);
    return finding;
}

}  // namespace LocationDetector
