// The DA-API over the disk library: selection model and property answers.
#include "core/da_api/da_api_impl.h"

#include <utility>

#include "core/da_api/da_properties.h"

namespace DaApi {
namespace {

Common::Error Failure(const wchar_t* text, const char* operation) {
    return Common::Error::Make(0x40100, text).WithField({"operation", Common::ErrorField::Kind::Text, operation});
}

[[noreturn]] void Throw(const wchar_t* text, const char* operation) {
    throw Common::ErrorException(Failure(text, operation));
}

class InterfaceImpl final : public Interface {
public:
    InterfaceImpl(std::unique_ptr<Disk::DiskSource> source, ComputerFacts computer)
        : source_(std::move(source)), computer_(std::move(computer)) {}

    Value DaGetProperty(PropertyId id) override {
        if (!computerSelected_) Throw(Failure::kNoMachine, "DaGetProperty");
        switch (id) {
        case Prop::kComputerName: return reinterpret_cast<std::uintptr_t>(computer_.name.c_str());
        case Prop::kOsKind: return computer_.osKind;
        case Prop::kFirmwareKind: return computer_.firmwareKind;
        case Prop::kDiskCount: return 0;
        default: Throw(Failure::kInvalidProperty, "DaGetProperty");
        }
    }
    Value DaGetProperty1(PropertyId, Value) override { Throw(Failure::kInvalidProperty, "DaGetProperty1"); }
    Value DaGetProperty2(PropertyId, Value) override { Throw(Failure::kNoPartition, "DaGetProperty2"); }
    void DaSetProperty(PropertyId id, Value) override {
        if (id == Prop::kSelectComputer) computerSelected_ = true;
        else if (id == Prop::kReleaseComputer) computerSelected_ = false;
    }
    Value GetFsProperty(PropertyId) override { Throw(Failure::kNoPartition, "GetFsProperty"); }
    Common::Error DaGetComputerError() override { return {}; }
    Common::Error ReadSectors(std::uint64_t, std::uint32_t, std::vector<std::uint8_t>&) override {
        return Failure(Failure::kNoDisk, "ReadSectors");
    }
    void Stop() override {}

private:
    std::unique_ptr<Disk::DiskSource> source_;
    ComputerFacts computer_;
    bool computerSelected_ = false;
};

}  // namespace

std::unique_ptr<Interface> MakeMachineInterface() { return MakeMachineInterface(nullptr); }

std::unique_ptr<Interface> MakeMachineInterface(std::unique_ptr<Disk::DiskSource> source) {
    return MakeMachineInterface(std::move(source), QueryComputerFacts());
}

std::unique_ptr<Interface> MakeMachineInterface(std::unique_ptr<Disk::DiskSource> source, ComputerFacts computer) {
    return std::make_unique<InterfaceImpl>(std::move(source), std::move(computer));
}

const char* MessageText(Value) { return nullptr; }

}  // namespace DaApi
