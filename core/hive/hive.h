// Registry hives read as a tree of keys and values: a BCD store file, or the running system's store.
// Read-only: nothing is ever written to a hive.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/common/error.h"

namespace Hive {

// Registry value types (winnt.h numbering).
enum ValueType : std::uint32_t {
    kNone = 0,
    kString = 1,        // REG_SZ
    kExpandString = 2,  // REG_EXPAND_SZ
    kBinary = 3,        // REG_BINARY
    kDword = 4,         // REG_DWORD
    kMultiString = 7,   // REG_MULTI_SZ
    kQword = 11,        // REG_QWORD
};

struct HiveValue {
    std::string name;  // UTF-8; empty for the key's default value
    std::uint32_t type = kNone;
    std::vector<std::uint8_t> data;  // as stored: strings are UTF-16LE
};

class HiveKey {
public:
    virtual ~HiveKey() = default;
    virtual std::string Name() const = 0;  // UTF-8
    virtual Common::Error Values(std::vector<HiveValue>& values) = 0;
    virtual Common::Error SubKeys(std::vector<std::unique_ptr<HiveKey>>& keys) = 0;
};

class HiveStore {
public:
    virtual ~HiveStore() = default;
    virtual std::unique_ptr<HiveKey> Root() = 0;
};

// Opens a hive file read-only (hivex on Linux, RegLoadAppKeyW on Windows). A missing file fails: it is
// never created.
Common::Error OpenHiveFile(const std::filesystem::path& file, std::unique_ptr<HiveStore>& store);

}  // namespace Hive
