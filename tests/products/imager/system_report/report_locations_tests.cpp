// The locations item: "locations.txt" for fixed lists of locations, byte for byte, and the item's use
// of its detector (started when the item is made, asked when the item runs).
#include "products/imager/system_report/report_locations.h"

#include <gtest/gtest.h>

#include <sstream>

#include "core/common/strings.h"
#include "tests/support/zip_test_reader.h"

namespace {

using LocationDetector::Location;
using LocationDetector::Locations;
using SystemReport::FileEntries;

class FixedDetector final : public LocationDetector::Detector {
public:
    explicit FixedDetector(Locations locations) : locations_(std::move(locations)) {}
    void AddObserver(std::shared_ptr<LocationDetector::Observer>) override {}
    void Start() override { ++starts; }
    Locations GetLocations() override {
        ++asks;
        return locations_;
    }
    void Stop() override { ++stops; }

    int starts = 0;
    int asks = 0;
    int stops = 0;

private:
    Locations locations_;
};

LocationDetector::LocationPtr Make(std::wstring name, std::wstring path, std::wstring hostname, std::string raw) {
    return std::make_shared<const Location>(Location{std::move(name), std::move(path), std::move(hostname), std::move(raw)});
}

std::string Written(const Locations& locations) {
    std::ostringstream out;
    SystemReport::WriteLocationBlocks(out, locations);
    return out.str();
}

TEST(LocationsTextTest, BlocksByteForByte) {
    const std::string raw("<root>\n\xFF\x00\r\n</root>", 17);
    // "Büro-Speicher 日本 😀": a two-byte, a three-byte and a four-byte sequence (a surrogate pair on Windows).
    const std::wstring name = Common::Utf8ToWide("B\xC3\xBCro-Speicher \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80");
    const std::wstring highAlone = std::wstring(L"A") + static_cast<wchar_t>(0xD800);
    const std::wstring lowFirst = std::wstring(L"x") + static_cast<wchar_t>(0xDC00) + static_cast<wchar_t>(0xD800);
    const std::pair<Locations, std::string> cases[] = {
        {{}, ""},
        {{Make(L"DiskStation", L"\\\\10.0.0.5", L"10.0.0.5", "")}, "Name: DiskStation\r\nPath: \\\\10.0.0.5\r\nHostname: 10.0.0.5\r\n\r\n\r\n"},
        {{Make(L"Vault", L"\\\\vault.local", L"vault.local", raw), Make(L"B", L"\\\\b", L"b", "x")},
         "Name: Vault\r\nPath: \\\\vault.local\r\nHostname: vault.local\r\n\r\nRaw:\r\n" + raw +
             "\r\n\r\nName: B\r\nPath: \\\\b\r\nHostname: b\r\n\r\nRaw:\r\nx\r\n\r\n"},
        {{Make(name, L"\\\\nas", L"nas", "")},
         "Name: B\xC3\xBCro-Speicher \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80\r\nPath: \\\\nas\r\nHostname: nas\r\n\r\n\r\n"},
        // An unpaired surrogate drops the block's text only.
        {{Make(highAlone, L"\\\\a", L"a", "raw"), Make(L"B", L"\\\\b", L"b", "")},
         "\r\nRaw:\r\nraw\r\n\r\nName: B\r\nPath: \\\\b\r\nHostname: b\r\n\r\n\r\n"},
        {{Make(L"n", L"p", lowFirst, "")}, "\r\n\r\n"},
        // Placeholders in the values are not expanded again.
        {{Make(L"{1}", L"{2}", L"{0}", "")}, "Name: {1}\r\nPath: {2}\r\nHostname: {0}\r\n\r\n\r\n"},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(Written(cases[i].first), cases[i].second) << i;
}

TEST(ReportLocationsTest, StartsTheDetectorWhenMadeAndListsTheFileEvenWhenEmpty) {
    const std::pair<Locations, std::string> cases[] = {
        {{Make(L"DiskStation", L"\\\\ds.local", L"ds.local", "<root/>")},
         "Name: DiskStation\r\nPath: \\\\ds.local\r\nHostname: ds.local\r\n\r\nRaw:\r\n<root/>\r\n\r\n"},
        {{}, ""},
    };
    for (const auto& [locations, text] : cases) {
        auto detector = std::make_shared<FixedDetector>(locations);
        SystemReport::ReportLocations item(detector);
        EXPECT_EQ(detector->starts, 1);
        EXPECT_EQ(detector->asks, 0);

        TestSupport::TempFolder folder;
        FileEntries entries;
        Common::Error error = item.Create(folder.path(), entries);
        EXPECT_TRUE(error.Succeeded()) << error.ToString();
        EXPECT_EQ(detector->asks, 1);
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].archiveName, L"locations.txt");
        EXPECT_FALSE(entries[0].filter);
        EXPECT_EQ(TestSupport::ReadFile(entries[0].source), text);

        item.Stop();
        EXPECT_GE(detector->stops, 1);
    }
}

TEST(ReportLocationsTest, AFileThatCannotBeMadeFailsWithoutAnEntry) {
    auto detector = std::make_shared<FixedDetector>(Locations{});
    SystemReport::ReportLocations item(detector);
    TestSupport::TempFolder folder;
    FileEntries entries;
    Common::Error error = item.Create(folder.path() / "missing" / "folder", entries);
    EXPECT_EQ(error.Code(), 0x4000au);
    EXPECT_EQ(error.Message(), L"Error occurred while creating the file.");
    EXPECT_TRUE(entries.empty());
}

}  // namespace
