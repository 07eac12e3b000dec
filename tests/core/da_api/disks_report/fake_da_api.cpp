// The in-memory DA-API of the disk report tests.
#include "tests/core/da_api/disks_report/fake_da_api.h"

#include "core/da_api/da_properties.h"

namespace DaApiTest {
namespace {

namespace Prop = DaApi::Prop;

[[noreturn]] void Fail(const wchar_t* text) { throw Common::ErrorException(Common::Error::Make(0x40001, text)); }

Value Address(const void* pointer) { return static_cast<Value>(reinterpret_cast<std::uintptr_t>(pointer)); }

template <typename Map>
const typename Map::mapped_type* FindIn(const Map& map, typename Map::key_type key) {
    auto it = map.find(key);
    return it == map.end() ? nullptr : &it->second;
}

Value ValueIn(const std::map<Value, Value>& map, Value key) {
    const Value* value = FindIn(map, key);
    return value ? *value : 0;
}

}  // namespace

std::optional<Value> Properties::Find(PropertyId id) const {
    if (const Value* number = FindIn(numbers, id)) return *number;
    if (const std::string* text = FindIn(texts, id)) return Address(text->c_str());
    if (const std::u16string* text = FindIn(wideTexts, id)) return Address(text->c_str());
    if (const std::vector<std::uint8_t>* block = FindIn(bytes, id)) return Address(block->data());
    return std::nullopt;
}

FakeDaApi::FakeDaApi(FakeComputer computer, std::shared_ptr<FakeLog> log)
    : computer_(std::move(computer)), log_(std::move(log)) {}

FakeObject* FakeDaApi::ObjectAt(Value handle) {
    for (FakeDisk& disk : computer_.disks) {
        for (FakeObject& object : disk.objects) {
            if (Address(&object) == handle) return &object;
            for (FakeObject& inner : object.inside) {
                if (Address(&inner) == handle) return &inner;
            }
        }
    }
    return nullptr;
}

std::optional<Value> FakeDaApi::Find(const FakeObject& object, PropertyId id, bool fileSystem) {
    if (checked_[&object]) {
        if (std::optional<Value> value = object.afterCheck.Find(id)) return value;
    }
    return (fileSystem ? object.fileSystem : object.properties).Find(id);
}

Value FakeDaApi::DaGetProperty(PropertyId id) {
    if (computer_.failingReads.count(id)) Fail(DaApi::Failure::kInvalidProperty);
    if (!computerSelected_) Fail(DaApi::Failure::kNoMachine);
    if (id == Prop::kDiskHandle) return disk_ ? static_cast<Value>(disk_ - computer_.disks.data() + 1) : 0;
    if (id == Prop::kObjectHandle) return Address(object_);
    if (id == Prop::kVolumeHandle && object_ && !object_->inside.empty()) return Address(object_);
    if (id == Prop::kDriveLetter) {
        if (!object_) Fail(DaApi::Failure::kNoPartition);
        return ValueIn(object_->driveLetters, view_);
    }
    if (std::optional<Value> value = object_ ? Find(*object_, id, false) : std::nullopt) return *value;
    if (std::optional<Value> value = disk_ ? disk_->properties.Find(id) : std::nullopt) return *value;
    return computer_.properties.Find(id).value_or(0);
}

Value FakeDaApi::DaGetProperty1(PropertyId id, Value parameter) {
    if (computer_.failingReads.count(id)) Fail(DaApi::Failure::kInvalidProperty);
    switch (id) {
        case Prop::kTypeByteName: {
            const std::string* name = FindIn(computer_.typeByteNames, parameter);
            return name ? Address(name->c_str()) : 0;
        }
        case Prop::kTypeByteFsType: return ValueIn(computer_.typeByteFsTypes, parameter);
        case Prop::kLabelLength: return ValueIn(computer_.labelLengths, parameter);
        case Prop::kCountsFreeSpace: return computer_.freeSpaceTypes.count(parameter);
        default: Fail(DaApi::Failure::kInvalidProperty);
    }
}

Value FakeDaApi::DaGetProperty2(PropertyId, Value) { Fail(DaApi::Failure::kInvalidProperty); }

Value FakeDaApi::GetFsProperty(PropertyId id) {
    if (computer_.failingReads.count(id)) Fail(DaApi::Failure::kInvalidProperty);
    if (!object_) Fail(DaApi::Failure::kNoPartition);
    return Find(*object_, id, true).value_or(0);
}

void FakeDaApi::DaSetProperty(PropertyId id, Value value) {
    log_->sets.emplace_back(id, value);
    auto nextIn = [this](std::vector<FakeObject>& list) -> FakeObject* {
        if (list.empty()) return nullptr;
        if (!object_) return &list.front();
        for (std::size_t i = 0; i + 1 < list.size(); ++i) {
            if (&list[i] == object_) return &list[i + 1];
        }
        return computer_.endlessObjects ? &list.front() : nullptr;
    };
    switch (id) {
        case Prop::kSelectComputer:
            if (computer_.noComputer) Fail(DaApi::Failure::kNoComputer);
            computerSelected_ = true;
            break;
        case Prop::kReleaseComputer: computerSelected_ = false; break;
        case Prop::kDropDisk: disk_ = nullptr; object_ = volume_ = nullptr; break;
        case Prop::kNextDisk: {
            std::size_t next = disk_ ? static_cast<std::size_t>(disk_ - computer_.disks.data()) + 1 : 0;
            disk_ = next < computer_.disks.size() ? &computer_.disks[next] : nullptr;
            object_ = volume_ = nullptr;
            break;
        }
        case Prop::kDiskHandle:
            disk_ = value != 0 && value <= computer_.disks.size() ? &computer_.disks[value - 1] : nullptr;
            object_ = volume_ = nullptr;
            break;
        case Prop::kObjectHandle: object_ = ObjectAt(value); break;
        case Prop::kNextObject:
            if (!disk_) Fail(DaApi::Failure::kNoDisk);
            object_ = nextIn(disk_->objects);
            break;
        case Prop::kNextVolumeObject:
            if (!volume_) Fail(DaApi::Failure::kNoPartition);
            object_ = nextIn(volume_->inside);
            break;
        case Prop::kVolumeHandle: volume_ = ObjectAt(value); break;
        case Prop::kRequestCheck:
            if (!object_) Fail(DaApi::Failure::kNoPartition);
            checked_[object_] = true;
            break;
        case Prop::kDriveLetterView: view_ = value; break;
        default: break;
    }
}

Common::Error FakeDaApi::DaGetComputerError() { return {}; }

Common::Error FakeDaApi::ReadSectors(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) {
    log_->reads.emplace_back(first, count);
    if (!disk_) return Common::Error::Make(0x40001, DaApi::Failure::kNoDisk);
    if (disk_->readError.Failed()) return disk_->readError;
    std::uint64_t sectorSize = disk_->properties.Find(Prop::kLogicalSectorSize).value_or(512);
    std::uint64_t begin = first * sectorSize;
    std::uint64_t length = std::uint64_t{count} * sectorSize;
    if (begin + length > disk_->content.size()) return Common::Error::Make(0x40001, L"Beyond the end of the disk.");
    data.assign(disk_->content.begin() + static_cast<std::ptrdiff_t>(begin),
                disk_->content.begin() + static_cast<std::ptrdiff_t>(begin + length));
    return {};
}

void FakeDaApi::Stop() { ++log_->stops; }

std::shared_ptr<FakeLog> InstallFake(FakeComputer computer) {
    auto log = std::make_shared<FakeLog>();
    DaApi::Install(std::make_unique<FakeDaApi>(std::move(computer), log));
    return log;
}

}  // namespace DaApiTest
