// Registry hives through the Win32 registry API: a store file loaded as an application hive
// (RegLoadAppKeyW, Windows 7 and later), and the running system's store under HKEY_LOCAL_MACHINE.
#include <string>
#include <system_error>

#include "core/common/log.h"
#include "core/common/scoped_handle.h"
#include "core/common/strings.h"
#include "core/common/windows_api.h"
#include "core/hive/hive.h"
#include "core/hive/hive_limits.h"
#include "core/hive/running_store.h"

namespace Hive {
namespace {

struct RegistryKeyTraits {
    using Handle = HKEY;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle handle) { return handle != nullptr; }
    static bool Close(Handle handle) { return RegCloseKey(handle) == ERROR_SUCCESS; }
};
using RegistryKey = Common::ScopedHandle<RegistryKeyTraits>;

Common::Error RegistryError(const wchar_t* what, LONG status) {
    return Common::Error::Make(Common::Codes::kOpenFile, what,
                               Common::Error::AddWindowsError(static_cast<std::uint32_t>(status)));
}

// An application hive is unloaded when the last handle into it closes: every key owns its handle, and the
// store's root outlives its sub-keys because the dump holds them only while it walks below the root.
class RegistryHiveKey final : public HiveKey {
public:
    RegistryHiveKey(RegistryKey key, std::wstring name) : key_(std::move(key)), name_(std::move(name)) {}

    std::string Name() const override { return Common::WideToUtf8(name_); }

    Common::Error Values(std::vector<HiveValue>& values) override {
        values.clear();
        DWORD count = 0, longestName = 0, longestData = 0;
        LONG status = RegQueryInfoKeyW(key_.Get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count,
                                       &longestName, &longestData, nullptr, nullptr);
        if (status != ERROR_SUCCESS) return RegistryError(L"The values of a registry key cannot be read.", status);
        std::wstring name(longestName + 1, L'\0');
        std::vector<std::uint8_t> data(std::min<std::size_t>(longestData, kMaxValueBytes));
        for (DWORD i = 0; i < count && values.size() < kMaxValuesPerKey; ++i) {
            DWORD nameLength = static_cast<DWORD>(name.size());
            DWORD type = REG_NONE;
            DWORD dataLength = static_cast<DWORD>(data.size());
            status = RegEnumValueW(key_.Get(), i, name.data(), &nameLength, nullptr, &type, data.data(), &dataLength);
            if (status == ERROR_NO_MORE_ITEMS) break;
            if (status == ERROR_MORE_DATA) {
                Common::Log::Warning("A registry value larger than a boot store's value can be is left out.");
                continue;
            }
            if (status != ERROR_SUCCESS) {
                Common::Log::WriteError(Common::Log::kWarning, "A registry value cannot be read: ",
                                        Common::Error::AddWindowsError(static_cast<std::uint32_t>(status)));
                continue;
            }
            values.push_back({Common::WideToUtf8(std::wstring_view(name.data(), nameLength)), type,
                              {data.begin(), data.begin() + dataLength}});
        }
        return {};
    }

    Common::Error SubKeys(std::vector<std::unique_ptr<HiveKey>>& keys) override {
        keys.clear();
        // Key names are at most 255 characters.
        wchar_t name[256];
        for (DWORD i = 0; keys.size() < kMaxSubKeysPerKey; ++i) {
            DWORD length = 256;
            LONG status = RegEnumKeyExW(key_.Get(), i, name, &length, nullptr, nullptr, nullptr, nullptr);
            if (status == ERROR_NO_MORE_ITEMS) break;
            if (status != ERROR_SUCCESS) return RegistryError(L"The sub-keys of a registry key cannot be read.", status);
            RegistryKey child;
            status = RegOpenKeyExW(key_.Get(), name, 0, KEY_READ, child.Receive());
            if (status != ERROR_SUCCESS) {
                Common::Log::WriteError(Common::Log::kWarning,
                                        "The registry key '" + Common::WideToUtf8(name) + "' cannot be opened: ",
                                        Common::Error::AddWindowsError(static_cast<std::uint32_t>(status)));
                continue;
            }
            keys.push_back(std::make_unique<RegistryHiveKey>(std::move(child), std::wstring(name, length)));
        }
        return {};
    }

private:
    RegistryKey key_;
    std::wstring name_;
};

class RegistryStore final : public HiveStore {
public:
    RegistryStore(RegistryKey root, std::wstring name) : root_(std::move(root)), name_(std::move(name)) {}
    // Each call opens its own handle to the root, so the root key given out may outlive the store.
    std::unique_ptr<HiveKey> Root() override {
        RegistryKey copy;
        if (RegOpenKeyExW(root_.Get(), nullptr, 0, KEY_READ, copy.Receive()) != ERROR_SUCCESS) return nullptr;
        return std::make_unique<RegistryHiveKey>(std::move(copy), name_);
    }

private:
    RegistryKey root_;
    std::wstring name_;
};

using LoadAppKey = LONG(WINAPI*)(LPCWSTR, PHKEY, REGSAM, DWORD, DWORD);

}  // namespace

Common::Error OpenHiveFile(const std::filesystem::path& file, std::unique_ptr<HiveStore>& store) {
    store.reset();
    // RegLoadAppKeyW makes an empty hive where the file is missing: that must never happen to a partition.
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))
        return RegistryError(L"The registry hive file does not exist.", ERROR_FILE_NOT_FOUND);
    // Found at run time: the call exists from Windows 7 on, and the program still starts on Vista.
    auto load = reinterpret_cast<LoadAppKey>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"advapi32.dll"), "RegLoadAppKeyW")));
    if (!load) return RegistryError(L"This system cannot load a registry hive file.", ERROR_PROC_NOT_FOUND);
    RegistryKey root;
    // A private application hive: no other process sees it, and it is unloaded with its last handle.
    LONG status = load(file.c_str(), root.Receive(), KEY_READ, REG_PROCESS_APPKEY, 0);
    if (status != ERROR_SUCCESS)
        return RegistryError(L"The registry hive cannot be loaded.", status)
            .WithField({"path", Common::ErrorField::Kind::Text, Common::PathToUtf8(file)});
    // An application hive's root has no name of its own: it is named after the file it came from.
    store = std::make_unique<RegistryStore>(std::move(root), file.filename().wstring());
    return {};
}

bool IsHeldBySystem(const Common::Error& loadError) {
    for (Common::Error entry = loadError; entry.Failed(); entry = entry.Cause()) {
        if (entry.Code() == ERROR_SHARING_VIOLATION || entry.Code() == ERROR_LOCK_VIOLATION) return true;
    }
    return false;
}

Common::Error OpenRunningStore(std::unique_ptr<HiveStore>& store) {
    store.reset();
    RegistryKey root;
    LONG status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"BCD00000000", 0, KEY_READ, root.Receive());
    if (status != ERROR_SUCCESS) return RegistryError(L"The running boot configuration store cannot be opened.", status);
    store = std::make_unique<RegistryStore>(std::move(root), L"BCD00000000");
    return {};
}

}  // namespace Hive
