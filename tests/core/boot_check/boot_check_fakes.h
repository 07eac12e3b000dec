// In-memory stand-ins for what the boot-chain check reads: a mounted volume holding files by path, and a
// BCD store as a registry key tree.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/disk/mounted_volume.h"
#include "core/hive/hive.h"

namespace BootCheck::Testing {

// Files by path ("EFI/Microsoft/Boot/BCD"); folders exist where a file lies below them.
class FakeVolume final : public Disk::MountedVolume {
public:
    explicit FakeVolume(std::map<std::string, std::string> files) : files_(std::make_shared<Files>(std::move(files))) {}
    std::unique_ptr<Disk::VolumeDirectory> Root() override;
    std::string Way() const override { return "fake"; }

private:
    using Files = std::map<std::string, std::string>;
    std::shared_ptr<Files> files_;
};

// One BCD object: its type word, and elements by type as registry values.
struct FakeObject {
    std::uint32_t type = 0;
    std::map<std::uint32_t, Hive::HiveValue> elements;
};

// The store "Objects\{guid}\Description\Type" and "Objects\{guid}\Elements\<type>\Element".
std::unique_ptr<Hive::HiveStore> MakeFakeStore(const std::map<std::string, FakeObject>& objects);

Hive::HiveValue StringValue(std::string_view text);
Hive::HiveValue MultiStringValue(const std::vector<std::string>& texts);
Hive::HiveValue BinaryValue(std::vector<std::uint8_t> bytes);

}  // namespace BootCheck::Testing
