// An in-memory DA-API for the disk report tests: a computer with disks, objects with property maps,
// volumes with the objects inside them, and sector contents, so that a test can script any situation.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/da_api/da_api.h"

namespace DaApiTest {

using DaApi::PropertyId;
using DaApi::Value;

// Numbers, 8-bit texts, 16-bit texts and byte blocks of one level.
struct Properties {
    std::map<PropertyId, Value> numbers;
    std::map<PropertyId, std::string> texts;
    std::map<PropertyId, std::u16string> wideTexts;
    std::map<PropertyId, std::vector<std::uint8_t>> bytes;

    Properties& Set(PropertyId id, Value value) { numbers[id] = value; return *this; }
    Properties& Text(PropertyId id, std::string text) { texts[id] = std::move(text); return *this; }
    Properties& Wide(PropertyId id, std::u16string text) { wideTexts[id] = std::move(text); return *this; }
    Properties& Bytes(PropertyId id, std::vector<std::uint8_t> data) { bytes[id] = std::move(data); return *this; }
    // The value of `id` when this level has it (a text or byte block reads as its address).
    std::optional<Value> Find(PropertyId id) const;
};

struct FakeObject {
    Properties properties;       // object level (DaGetProperty)
    Properties fileSystem;       // GetFsProperty
    Properties afterCheck;       // replaces values once a check was requested (set-property 36)
    std::map<Value, Value> driveLetters;  // view (set-property 207) -> letter
    std::vector<FakeObject> inside;       // objects inside a volume of a volume group (the object's own
                                          // handle is then its volume handle, property 85)
};

struct FakeDisk {
    Properties properties;
    std::vector<FakeObject> objects;
    std::vector<std::uint8_t> content;  // the disk's sectors from sector 0
    Common::Error readError;            // every read fails with this when set
};

struct FakeComputer {
    Properties properties;
    std::vector<FakeDisk> disks;
    std::map<Value, std::string> typeByteNames;   // kTypeByteName
    std::map<Value, Value> typeByteFsTypes;       // kTypeByteFsType
    std::map<Value, Value> labelLengths;          // kLabelLength, by file-system type
    std::set<Value> freeSpaceTypes;               // kCountsFreeSpace
    std::set<PropertyId> failingReads;            // reads that throw "An invalid property."
    bool noComputer = false;                      // selecting the computer fails
    bool endlessObjects = false;                  // the object walk starts over instead of ending
};

// Calls made on the fake, for tests of the walk itself.
struct FakeLog {
    std::vector<std::pair<PropertyId, Value>> sets;
    std::vector<std::pair<std::uint64_t, std::uint32_t>> reads;
    int stops = 0;
};

class FakeDaApi final : public DaApi::Interface {
public:
    FakeDaApi(FakeComputer computer, std::shared_ptr<FakeLog> log);

    Value DaGetProperty(PropertyId id) override;
    Value DaGetProperty1(PropertyId id, Value parameter) override;
    Value DaGetProperty2(PropertyId id, Value parameter) override;
    void DaSetProperty(PropertyId id, Value value) override;
    Value GetFsProperty(PropertyId id) override;
    Common::Error DaGetComputerError() override;
    Common::Error ReadSectors(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) override;
    void Stop() override;

private:
    FakeObject* ObjectAt(Value handle);
    // The object's value of `id` at its own level or its file system's, after a check its afterCheck value.
    std::optional<Value> Find(const FakeObject& object, PropertyId id, bool fileSystem);

    FakeComputer computer_;
    std::shared_ptr<FakeLog> log_;
    bool computerSelected_ = false;
    FakeDisk* disk_ = nullptr;
    FakeObject* object_ = nullptr;
    FakeObject* volume_ = nullptr;
    std::map<const FakeObject*, bool> checked_;
    Value view_ = 0;
};

// Installs a fake over `computer` as the process-wide instance; the log sees its calls.
std::shared_ptr<FakeLog> InstallFake(FakeComputer computer);

}  // namespace DaApiTest
