// libFuzzer target: the multicast DNS decoder and the service collector behind it, over any bytes.
#include <cstddef>
#include <cstdint>
#include <span>

#include "home/location_detector/impl/dns_message.h"
#include "home/location_detector/impl/mdns_collector.h"

namespace {

using namespace LocationDetector;

// What the decoder promises about every name it hands out.
void CheckName(const Dns::Name& name) {
    std::size_t octets = 1;
    for (const std::string& label : name.labels) {
        if (label.empty() || label.size() > Dns::kMaxLabelOctets) __builtin_trap();
        octets += 1 + label.size();
    }
    if (octets > Dns::kMaxNameOctets) __builtin_trap();
    name.ToText();
}

void CheckRecords(const std::vector<Dns::Record>& records) {
    for (const Dns::Record& record : records) {
        CheckName(record.name);
        if (const auto* ptr = std::get_if<Dns::PtrData>(&record.data)) CheckName(ptr->target);
        if (const auto* srv = std::get_if<Dns::SrvData>(&record.data)) CheckName(srv->target);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Dns::DecodeResult result = Dns::Decode(std::span(data, size));
    if (!result.message) {
        if (result.error.empty() || result.errorOffset > size) __builtin_trap();
        return 0;
    }
    const Dns::Message& message = *result.message;
    if (message.answers.size() + message.authorities.size() + message.additionals.size() > Dns::kMaxRecords)
        __builtin_trap();
    for (const Dns::Question& question : message.questions) CheckName(question.name);
    CheckRecords(message.answers);
    CheckRecords(message.authorities);
    CheckRecords(message.additionals);

    ServiceCollector collector({Dns::Name::FromText("_smb._tcp.local."), Dns::Name::FromText("_airport._tcp.local.")});
    collector.Add(message);
    collector.FollowUpQuestions();
    for (const ServiceInstance& instance : collector.TakeResolved()) ToFinding(instance);
    for (const ServiceInstance& instance : collector.TakeRest()) ToFinding(instance);
    return 0;
}
