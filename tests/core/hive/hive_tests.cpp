// The hive reader over a store made by hivexregedit (cross-checked against hivexsh), the dump's value
// texts, and damaged stores.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>

#include "core/hive/hive.h"
#include "core/hive/hive_dump.h"

namespace {

using namespace std::string_view_literals;

std::filesystem::path Fixture(const char* name) { return std::filesystem::path(SR_BOOT_FIXTURES_DIR) / name; }

#define REQUIRE_FIXTURE(name)                                                                   \
    if (!std::filesystem::exists(Fixture(name))) GTEST_SKIP() << "no fixture " << Fixture(name) \
                                                              << " (make_boot_fixtures.sh needs root)"

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (char c : text) quoted += (c == '\\' || c == '"') ? std::string{'\\', c} : std::string{c};
    return quoted + "\"";
}

// A value as hivexsh's lsval prints it.
std::string AsHivexsh(const Hive::HiveValue& value) {
    std::string text = Quoted(value.name) + "=";
    char buffer[16];
    if (value.type == Hive::kString || value.type == Hive::kExpandString) {
        std::string string = Hive::ValueText(value);
        return text + (value.type == Hive::kExpandString ? "str(2):" : "") + Quoted(string);
    }
    if (value.type == Hive::kDword) {
        std::snprintf(buffer, sizeof buffer, "dword:%08lx", std::stoul(Hive::ValueText(value)));
        return text + buffer;
    }
    text += "hex(" + std::to_string(value.type) + "):";
    for (std::size_t i = 0; i < value.data.size(); ++i) {
        std::snprintf(buffer, sizeof buffer, i ? ",%02x" : "%02x", value.data[i]);
        text += buffer;
    }
    return text;
}

using KeyLines = std::map<std::string, std::vector<std::string>>;

void Collect(Hive::HiveKey& key, const std::string& path, KeyLines& lines) {
    std::vector<std::string>& own = lines[path.empty() ? "\\" : path];
    std::vector<Hive::HiveValue> values;
    ASSERT_TRUE(key.Values(values).Succeeded());
    for (const Hive::HiveValue& value : values) own.push_back(AsHivexsh(value));
    std::vector<std::unique_ptr<Hive::HiveKey>> subKeys;
    ASSERT_TRUE(key.SubKeys(subKeys).Succeeded());
    for (auto& subKey : subKeys) Collect(*subKey, path + "\\" + subKey->Name(), lines);
}

TEST(HiveFile, ReadsEveryKeyAndValueAsHivexshDoes) {
    REQUIRE_FIXTURE("bcd.hive");
    KeyLines expected;
    std::ifstream report(Fixture("reports/bcd.lsval.txt"));
    for (std::string line; std::getline(report, line);) {
        if (line.rfind("key ", 0) == 0) {
            expected[line.substr(4)];
        } else {
            expected.rbegin()->second.push_back(line);
        }
    }
    ASSERT_EQ(expected.size(), 11u);

    std::unique_ptr<Hive::HiveStore> store;
    ASSERT_TRUE(Hive::OpenHiveFile(Fixture("bcd.hive"), store).Succeeded());
    KeyLines actual;
    Collect(*store->Root(), "", actual);
    EXPECT_EQ(actual, expected);
}

TEST(HiveFile, MissingFileFailsAndIsNotCreated) {
    std::filesystem::path missing = std::filesystem::temp_directory_path() / "no-such-store.hive";
    std::unique_ptr<Hive::HiveStore> store;
    EXPECT_TRUE(Hive::OpenHiveFile(missing, store).Failed());
    EXPECT_FALSE(store);
    EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST(HiveDump, WritesEachValueTypeByItsRule) {
    auto utf16 = [](std::u16string_view text) {
        std::vector<std::uint8_t> bytes;
        for (char16_t c : text) bytes.insert(bytes.end(), {static_cast<std::uint8_t>(c), static_cast<std::uint8_t>(c >> 8)});
        return bytes;
    };
    struct Case {
        std::uint32_t type;
        std::vector<std::uint8_t> data;
        std::string text;
    } cases[] = {
        {Hive::kBinary, {0x00, 0xAB, 0x0F}, "00 AB 0F "},
        {Hive::kString, utf16(u"Boot\u0416 manager\0"sv), "Boot? manager"},
        {Hive::kString, utf16(u"no terminator"sv), "no terminator"},
        {Hive::kExpandString, utf16(u"%SystemRoot%\0"sv), "%SystemRoot%"},
        {Hive::kMultiString, utf16(u"{a}\0{b}\0\0"sv), "{a} {b}"},
        {Hive::kQword, {0x00, 0x10, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00}, "4294971392"},
        {Hive::kDword, {0x02, 0x00, 0x10, 0x10}, "269484034"},
        {Hive::kDword, {0xFF, 0xFF, 0xFF, 0xFF}, "4294967295"},
        {5, {0x01, 0x02, 0x03, 0x04}, ""},
        {Hive::kNone, {0x01}, ""},
    };
    for (const Case& c : cases) EXPECT_EQ(Hive::ValueText({"v", c.type, c.data}), c.text) << "type " << c.type;
}

TEST(HiveDump, WritesTheStoreDepthFirstTwoBlanksPerLevel) {
    REQUIRE_FIXTURE("bcd.hive");
    std::unique_ptr<Hive::HiveStore> store;
    ASSERT_TRUE(Hive::OpenHiveFile(Fixture("bcd.hive"), store).Succeeded());
    std::string dump;
    Hive::DumpKeyTree(*store->Root(), dump);
    EXPECT_EQ(dump,
              "ROOT\r\n"
              "  Description\r\n"
              "    KeyName: BCD00000000\r\n"
              "    System: 1\r\n"
              "  Objects\r\n"
              "    {9dea862c-5cdd-4e70-acc1-f32b344d4795}\r\n"
              "      Description\r\n"
              "        Type: 269484034\r\n"
              "        Path: %SystemRoot%\\Boot\r\n"
              "      Elements\r\n"
              "        11000001\r\n"
              "          Element: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 06 00 00 00 00 00 00 00 \r\n"
              "        12000004\r\n"
              "          Element: Windows Boot Manager\r\n"
              "        24000001\r\n"
              "          Element: {a5a30fa2-3d06-4e9f-b5f4-a01df9d1fcba} {b2721d73-1db4-4c62-bf78-c548a880142d}\r\n"
              "        25000004\r\n"
              "          Element: 1E 00 00 00 00 00 00 00 \r\n"
              "        25000006\r\n"
              "          Element: 4294971392\r\n");
}

// Damaged stores: each is refused or dumped shorter, never a crash or a hang.
TEST(HiveFile, DamagedStoresAreRefusedOrCut) {
    struct Case {
        const char* file;
        bool opens;
        const char* absent;  // text the dump must not hold
    } cases[] = {
        {"bad-text.hive", false, nullptr},
        {"bad-truncated.hive", false, nullptr},
        {"bad-huge.hive", true, "Element"},  // the 256 KiB value is left out, its key stays
        {"bad-deep.hive", true, "Level17"},  // the dump stops at depth 16
        {"bad-loop.hive", true, nullptr},
    };
    for (const Case& c : cases) {
        REQUIRE_FIXTURE(c.file);
        std::unique_ptr<Hive::HiveStore> store;
        ASSERT_EQ(Hive::OpenHiveFile(Fixture(c.file), store).Succeeded(), c.opens) << c.file;
        if (!c.opens) continue;
        std::string dump;
        Hive::DumpKeyTree(*store->Root(), dump);
        EXPECT_LT(dump.size(), 2u * 1024 * 1024) << c.file;
        if (c.absent) {
            EXPECT_EQ(dump.find(c.absent), std::string::npos) << c.file;
        }
    }
}

}  // namespace
