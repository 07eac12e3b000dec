// The process-wide DA-API instance and the free functions that reach it.
#include "core/da_api/da_api.h"

#include <utility>

#include "core/common/log.h"
#include "core/da_api/da_api_impl.h"

namespace DaApi {
namespace {

std::unique_ptr<Interface>& Slot() {
    static std::unique_ptr<Interface> instance;
    return instance;
}

}  // namespace

void Initialize() {
    // Nothing is read here: devices are listed when the report first selects the computer, so a machine
    // without readable disks still gets an interface (with no disks, or with disks whose reads fail).
    try {
        Slot() = MakeMachineInterface();
    } catch (...) {
        Common::Log::Error("The disk-access interface could not be made; the report will show no disks.");
        Slot() = MakeMachineInterface(nullptr);
    }
}

void Install(std::unique_ptr<Interface> instance) { Slot() = std::move(instance); }

Interface& Instance() {
    if (!Slot()) Initialize();
    return *Slot();
}

Value DaGetProperty(PropertyId id) { return Instance().DaGetProperty(id); }
Value DaGetProperty1(PropertyId id, Value parameter) { return Instance().DaGetProperty1(id, parameter); }
Value DaGetProperty2(PropertyId id, Value parameter) { return Instance().DaGetProperty2(id, parameter); }
void DaSetProperty(PropertyId id, Value value) { Instance().DaSetProperty(id, value); }
Value GetFsProperty(PropertyId id) { return Instance().GetFsProperty(id); }
Common::Error DaGetComputerError() { return Instance().DaGetComputerError(); }
Common::Error DaMountVolume(Value volumeHandle, std::unique_ptr<Disk::MountedVolume>& volume) {
    return Instance().MountVolume(volumeHandle, volume);
}

Common::Error Interface::MountVolume(Value, std::unique_ptr<Disk::MountedVolume>& volume) {
    volume.reset();
    return Common::Error::Make(Common::Codes::kOpenFile, L"The volume cannot be mounted.");
}

}  // namespace DaApi
