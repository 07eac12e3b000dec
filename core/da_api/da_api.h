// The disk-access interface (DA-API): a process-wide selection (computer, disk, object, volume group,
// storage pool) and a flat space of numbered properties read and written against it.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/common/error.h"
#include "core/disk/mounted_volume.h"

namespace DaApi {

using PropertyId = std::int32_t;
using Value = std::uint64_t;

// Texts are returned as a pointer in the value: 8-bit texts as `const char*`, 16-bit texts as
// `const char16_t*`, zero-terminated, owned by the interface and valid until the selection changes.
// An absent text reads as 0.
inline const char* Text8(Value value) { return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(value)); }
inline const char16_t* Text16(Value value) {
    return reinterpret_cast<const char16_t*>(static_cast<std::uintptr_t>(value));
}

// Every failing call throws Common::ErrorException carrying one of these texts, the operation's name
// (field "operation") and the source position.
namespace Failure {
inline constexpr const wchar_t* kInvalidProperty = L"An invalid property.";
inline constexpr const wchar_t* kNoMachine = L"No current machine.";
inline constexpr const wchar_t* kNoDisk = L"No current disk.";
inline constexpr const wchar_t* kNoPartition = L"No current partition.";
inline constexpr const wchar_t* kNoStoragePool = L"No current storage pool.";
inline constexpr const wchar_t* kReadOnly = L"The disk is read-only.";
inline constexpr const wchar_t* kCheckError = L"A check error.";
inline constexpr const wchar_t* kNoContext = L"No context.";
inline constexpr const wchar_t* kContextNotFilled = L"The context parameter is not filled yet.";
inline constexpr const wchar_t* kInternal = L"An internal error.";
inline constexpr const wchar_t* kNoComputer = L"Object 'Computer' cannot be found.";
}  // namespace Failure

// The operations. One implementation answers over the disk library (the machine's disks, or image files
// standing in for them); tests install fakes.
class Interface {
public:
    virtual ~Interface() = default;
    virtual Value DaGetProperty(PropertyId id) = 0;
    virtual Value DaGetProperty1(PropertyId id, Value parameter) = 0;
    virtual Value DaGetProperty2(PropertyId id, Value parameter) = 0;
    virtual void DaSetProperty(PropertyId id, Value value) = 0;
    virtual Value GetFsProperty(PropertyId id) = 0;
    // The computer object's last error; throws kNoComputer when there is no computer object.
    virtual Common::Error DaGetComputerError() = 0;
    // Reads `count` logical sectors of the current disk from `first`; fails (error, no throw) on a read
    // error or a range outside the disk.
    virtual Common::Error ReadSectors(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) = 0;
    // From another thread: a long walk or read ends as soon as it can.
    virtual void Stop() = 0;
    // Mounts the volume of `volumeHandle` (property 85) read-only; destroying `volume` releases it.
    virtual Common::Error MountVolume(Value volumeHandle, std::unique_ptr<Disk::MountedVolume>& volume);
};

// The process-wide instance. Initialize makes the one over this machine's disks (or over the image files
// named in SYSTEM_REPORT_DISK_IMAGES); Install replaces it (tests).
void Initialize();
void Install(std::unique_ptr<Interface> instance);
Interface& Instance();

// The operations on the process-wide instance, under the names the report uses.
Value DaGetProperty(PropertyId id);
Value DaGetProperty1(PropertyId id, Value parameter);
Value DaGetProperty2(PropertyId id, Value parameter);
void DaSetProperty(PropertyId id, Value value);
Value GetFsProperty(PropertyId id);
Common::Error DaGetComputerError();
Common::Error DaMountVolume(Value volumeHandle, std::unique_ptr<Disk::MountedVolume>& volume);

}  // namespace DaApi
