// The Windows system probe against the real registry and process (under Wine in this project's runs).
#include "products/imager/system_report/system_probe.h"

#include <gtest/gtest.h>

#include "core/common/windows_api.h"

namespace {

constexpr wchar_t kMiniNtKey[] = L"SYSTEM\\CurrentControlSet\\Control\\MiniNT";

TEST(SystemProbeWinTest, ThePreinstallationEnvironmentIsTheMiniNtKey) {
    auto probe = SystemReport::MakeSystemProbe();
    HKEY existing = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kMiniNtKey, 0, KEY_READ, &existing) == ERROR_SUCCESS) {
        RegCloseKey(existing);
        GTEST_SKIP() << "this system is a pre-installation environment already";
    }
    EXPECT_FALSE(probe->IsPreinstallationEnvironment());

    HKEY key = nullptr;
    LONG made = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kMiniNtKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    if (made != ERROR_SUCCESS) GTEST_SKIP() << "the key cannot be made here (error " << made << ")";
    RegCloseKey(key);
    EXPECT_TRUE(probe->IsPreinstallationEnvironment());
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kMiniNtKey), ERROR_SUCCESS);
    EXPECT_FALSE(probe->IsPreinstallationEnvironment());
}

TEST(SystemProbeWinTest, OnlyA32BitProcessCanBeWow64) {
    if (sizeof(void*) != 8) GTEST_SKIP() << "a 32-bit build answers as the system it runs on";
    EXPECT_FALSE(SystemReport::MakeSystemProbe()->IsWow64Process());
}

}  // namespace
