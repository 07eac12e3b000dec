// In-memory volumes and BCD stores.
#include "boot_check_fakes.h"

#include "core/disk/disk_errors.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace BootCheck::Testing {
namespace {

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

class FakeDirectory final : public Disk::VolumeDirectory {
public:
    FakeDirectory(std::shared_ptr<const std::map<std::string, std::string>> files, std::string prefix)
        : files_(std::move(files)), prefix_(std::move(prefix)) {}

    Common::Error List(std::vector<Disk::VolumeEntry>& entries) override {
        std::map<std::string, Disk::VolumeEntry> found;
        for (const auto& [path, bytes] : *files_) {
            if (Lower(path).rfind(Lower(prefix_), 0) != 0) continue;
            std::string rest = path.substr(prefix_.size());
            std::size_t slash = rest.find('/');
            std::string name = rest.substr(0, slash);
            found[name] = {name, slash != std::string::npos, slash == std::string::npos ? bytes.size() : 0};
        }
        for (auto& [name, entry] : found) entries.push_back(entry);
        return {};
    }
    Common::Error OpenDirectory(std::string_view name, std::unique_ptr<Disk::VolumeDirectory>& directory) override {
        directory = std::make_unique<FakeDirectory>(files_, prefix_ + std::string(name) + "/");
        return {};
    }
    Common::Error ReadFile(std::string_view name, std::uint64_t limit, std::string& bytes,
                           std::uint64_t& size) override {
        for (const auto& [path, content] : *files_)
            if (Lower(path) == Lower(prefix_ + std::string(name))) {
                size = content.size();
                bytes = content.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(limit, size)));
                return {};
            }
        return Common::Error::Make(Disk::Codes::kNotFound, L"not found");
    }

private:
    std::shared_ptr<const std::map<std::string, std::string>> files_;
    std::string prefix_;
};

class FakeKey final : public Hive::HiveKey {
public:
    std::string name;
    std::vector<Hive::HiveValue> values;
    std::vector<std::shared_ptr<FakeKey>> keys;

    std::string Name() const override { return name; }
    Common::Error Values(std::vector<Hive::HiveValue>& out) override {
        out = values;
        return {};
    }
    Common::Error SubKeys(std::vector<std::unique_ptr<Hive::HiveKey>>& out) override {
        for (const auto& key : keys) out.push_back(std::make_unique<FakeKey>(*key));
        return {};
    }
};

std::shared_ptr<FakeKey> Key(std::string name, std::vector<std::shared_ptr<FakeKey>> keys = {},
                             std::vector<Hive::HiveValue> values = {}) {
    auto key = std::make_shared<FakeKey>();
    key->name = std::move(name);
    key->keys = std::move(keys);
    key->values = std::move(values);
    return key;
}

class FakeStore final : public Hive::HiveStore {
public:
    explicit FakeStore(std::shared_ptr<FakeKey> root) : root_(std::move(root)) {}
    std::unique_ptr<Hive::HiveKey> Root() override { return std::make_unique<FakeKey>(*root_); }

private:
    std::shared_ptr<FakeKey> root_;
};

std::vector<std::uint8_t> Utf16(const std::vector<std::string>& texts, bool multi) {
    std::vector<std::uint8_t> bytes;
    for (const std::string& text : texts) {
        for (char c : text) bytes.insert(bytes.end(), {static_cast<std::uint8_t>(c), 0});
        bytes.insert(bytes.end(), {0, 0});
    }
    if (multi) bytes.insert(bytes.end(), {0, 0});
    return bytes;
}

}  // namespace

std::unique_ptr<Disk::VolumeDirectory> FakeVolume::Root() { return std::make_unique<FakeDirectory>(files_, ""); }

std::unique_ptr<Hive::HiveStore> MakeFakeStore(const std::map<std::string, FakeObject>& objects) {
    auto objectsKey = Key("Objects");
    for (const auto& [guid, object] : objects) {
        std::vector<std::uint8_t> type(4);
        for (int i = 0; i < 4; ++i) type[i] = static_cast<std::uint8_t>(object.type >> (8 * i));
        auto elements = Key("Elements");
        for (const auto& [elementType, value] : object.elements) {
            char name[9];
            std::snprintf(name, sizeof name, "%08X", elementType);
            Hive::HiveValue element = value;
            element.name = "Element";
            elements->keys.push_back(Key(name, {}, {element}));
        }
        objectsKey->keys.push_back(
            Key("{" + guid + "}", {Key("Description", {}, {{"Type", Hive::kDword, type}}), elements}));
    }
    return std::make_unique<FakeStore>(Key("ROOT", {Key("Description"), objectsKey}));
}

Hive::HiveValue StringValue(std::string_view text) { return {"", Hive::kString, Utf16({std::string(text)}, false)}; }
Hive::HiveValue MultiStringValue(const std::vector<std::string>& texts) {
    return {"", Hive::kMultiString, Utf16(texts, true)};
}
Hive::HiveValue BinaryValue(std::vector<std::uint8_t> bytes) { return {"", Hive::kBinary, std::move(bytes)}; }

}  // namespace BootCheck::Testing
