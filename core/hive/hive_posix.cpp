// Registry hive files read through hivex. hivex opens by path only; nothing is ever written (no
// HIVEX_OPEN_WRITE), and it runs in its strict mode, so a damaged hive is refused rather than guessed at.
#include <hivex.h>

#include <cerrno>
#include <cstdlib>

#include "core/common/log.h"
#include "core/common/scoped_handle.h"
#include "core/common/strings.h"
#include "core/hive/hive.h"
#include "core/hive/hive_limits.h"
#include "core/hive/running_store.h"

namespace Hive {
namespace {

struct HivexTraits {
    using Handle = hive_h*;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle handle) { return handle != nullptr; }
    static bool Close(Handle handle) { return hivex_close(handle) == 0; }
};
using HivexHandle = Common::ScopedHandle<HivexTraits>;

// hivex hands out names, value data and child lists in memory of the C library's heap.
template <typename T>
struct FreeDeleter {
    void operator()(T* p) const { std::free(p); }
};
template <typename T>
using Malloced = std::unique_ptr<T, FreeDeleter<T>>;

Common::Error HivexError(const wchar_t* what, int error) {
    return Common::Error::Make(Common::Codes::kOpenFile, what, Common::Error::AddErrno(error != 0 ? error : EINVAL));
}

// Keys share the open hive with the store that made them and with each other.
class HivexKey final : public HiveKey {
public:
    HivexKey(std::shared_ptr<HivexHandle> hive, hive_node_h node) : hive_(std::move(hive)), node_(node) {}

    std::string Name() const override {
        Malloced<char> name(hivex_node_name(hive_->Get(), node_));
        return name ? std::string(name.get()) : std::string();
    }

    Common::Error Values(std::vector<HiveValue>& values) override {
        values.clear();
        errno = 0;
        Malloced<hive_value_h> list(hivex_node_values(hive_->Get(), node_));
        if (!list) return HivexError(L"The values of a registry key cannot be read.", errno);
        for (const hive_value_h* value = list.get(); *value != 0 && values.size() < kMaxValuesPerKey; ++value) {
            Malloced<char> name(hivex_value_key(hive_->Get(), *value));
            hive_type type = hive_t_REG_NONE;
            std::size_t length = 0;
            if (!name || hivex_value_type(hive_->Get(), *value, &type, &length) != 0) {
                Common::Log::Warning("A registry value whose name or type cannot be read is left out.");
                continue;
            }
            if (length > kMaxValueBytes) {
                Common::Log::Warning("The registry value '" + std::string(name.get()) + "' holds " +
                                     std::to_string(length) + " bytes, more than a boot store's value can: left out.");
                continue;
            }
            Malloced<char> data(hivex_value_value(hive_->Get(), *value, &type, &length));
            if (!data) {
                Common::Log::Warning("The data of the registry value '" + std::string(name.get()) +
                                     "' cannot be read: left out.");
                continue;
            }
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(data.get());
            values.push_back({name.get(), static_cast<std::uint32_t>(type), {bytes, bytes + length}});
        }
        return {};
    }

    Common::Error SubKeys(std::vector<std::unique_ptr<HiveKey>>& keys) override {
        keys.clear();
        errno = 0;
        Malloced<hive_node_h> children(hivex_node_children(hive_->Get(), node_));
        if (!children) return HivexError(L"The sub-keys of a registry key cannot be read.", errno);
        for (const hive_node_h* child = children.get(); *child != 0 && keys.size() < kMaxSubKeysPerKey; ++child)
            keys.push_back(std::make_unique<HivexKey>(hive_, *child));
        return {};
    }

private:
    std::shared_ptr<HivexHandle> hive_;
    hive_node_h node_;
};

class HivexStore final : public HiveStore {
public:
    explicit HivexStore(HivexHandle hive) : hive_(std::make_shared<HivexHandle>(std::move(hive))) {}
    std::unique_ptr<HiveKey> Root() override {
        return std::make_unique<HivexKey>(hive_, hivex_root(hive_->Get()));
    }

private:
    std::shared_ptr<HivexHandle> hive_;
};

}  // namespace

Common::Error OpenHiveFile(const std::filesystem::path& file, std::unique_ptr<HiveStore>& store) {
    store.reset();
    errno = 0;
    HivexHandle hive(hivex_open(file.c_str(), 0));
    if (!hive) {
        return HivexError(L"The registry hive cannot be opened.", errno)
            .WithField({"path", Common::ErrorField::Kind::Text, Common::PathToUtf8(file)});
    }
    if (hivex_root(hive.Get()) == 0) return HivexError(L"The registry hive has no root key.", errno);
    store = std::make_unique<HivexStore>(std::move(hive));
    return {};
}

bool IsHeldBySystem(const Common::Error&) { return false; }

Common::Error OpenRunningStore(std::unique_ptr<HiveStore>& store) {
    store.reset();
    return Common::Error::Make(Common::Codes::kOpenFile, L"This system keeps no running boot configuration store.");
}

}  // namespace Hive
