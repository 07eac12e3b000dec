// The text of "uefi_vars.txt" over a fake firmware: sections, separators, field lines and their limits.
#include <gtest/gtest.h>

#include <sstream>

#include "core/grub_parser/uefi_bootvars/bootvars_report.h"
#include "core/grub_parser/uefi_bootvars/load_options_impl.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_fakes.h"

namespace {

using namespace UefiTest;
using namespace std::string_literals;

std::string Report(Uefi::VariableStore& store) {
    std::ostringstream out;
    EXPECT_TRUE(Uefi::WriteUefiBootVariablesReport(&out, store).Succeeded());
    return out.str();
}

std::string ReportOfOneEntry(const Bytes& value) {
    FakeVariableStore store;
    store.values[L"Boot0003"] = value;
    return Report(store);
}

TEST(UefiBootVariablesReport, FixtureMachine) {
    FakeVariableStore store;
    store.values = FixtureVariables();
    EXPECT_EQ(Report(store), FixtureReportText());
}

TEST(UefiBootVariablesReport, SectionsThatCannotBeObtained) {
    // No entries and no BootOrder variable (a system without UEFI is the end-to-end runs').
    FakeVariableStore empty;
    EXPECT_EQ(Report(empty), "Boot variables are allowed on this system" + kSeparator + "Boot variables information:" +
                                 kSeparator + "Could not obtain Boot Order, UEFI is not enabled");

    // An entry that cannot be read, and an empty boot order.
    FakeVariableStore unreadable;
    unreadable.readErrors[L"Boot1234"] = Uefi::MakeBootEntryError(L"Boot1234");
    unreadable.values[L"BootOrder"] = {};
    EXPECT_EQ(Report(unreadable), "Boot variables are allowed on this system" + kSeparator + "Boot variables information:" +
                                      kSeparator + "Unable to obtain string representation for entry #4660" +
                                      "Boot variables in Boot Order:" + kSeparator + kSeparator);
}

TEST(UefiBootVariablesReport, FieldLines) {
    // Low bytes of the UTF-16 units: U+00E9 stays, U+0142 gives 'B', U+4E2D '-', U+1F600 '=' and 0, and a
    // lone surrogate its own low byte (not that of U+FFFD).
    std::string text = ReportOfOneEntry(LoadOption(1, u"Caf\u00e9 \u0142\u4e2d \U0001F600\xDC41", EndNode()));
    EXPECT_NE(text.find("Description: Caf\xE9 B- =\0A\r\n"s), std::string::npos);
    EXPECT_NE(text.find("Partition Size: Unknown\r\nHex dump\r\n01 00 00 00 04 00 43 00 61 00 "), std::string::npos);

    // A line past the formatter's 1,024 bytes is cut to 1,023; partition numbers keep their low 16 bits; a
    // file path without its zero unit is taken whole.
    text = ReportOfOneEntry(LoadOption(1, std::u16string(2000, u'a'), Concat({HardDriveNode(0x10005, 1, 2, {}, 1),
                                                                              Node(4, 4, Utf16(u"\\x.efi", false)), EndNode()})));
    EXPECT_NE(text.find("Description: " + std::string(1010, 'a') + "\r\nPath: \\x.efi\r\n"), std::string::npos);
    EXPECT_NE(text.find("GUID: Unknown\r\nPartition number: 5\r\nBegin: 1\r\nPartition Size: 2\r\n"), std::string::npos);
}

class EmptyValueEntry final : public Uefi::BootEntry {
public:
    std::uint16_t GetNumber() const override { return 7; }
    Common::Error GetLoadOptions(std::shared_ptr<Uefi::LoadOptions>& options) override {
        options = std::make_shared<Uefi::LoadOptionsImpl>();
        return {};
    }
    Common::Error GetRawData(std::vector<std::uint8_t>& data) override {
        data.clear();
        return {};
    }
};

TEST(BuildBootEntryText, EmptyRawValueHasNoHexDump) {
    EmptyValueEntry entry;
    std::string text;
    ASSERT_TRUE(Uefi::BuildBootEntryText(entry, text).Succeeded());
    EXPECT_EQ(text, "---- 7 ----\r\nDescription: \r\nPath: Unknown\r\nGUID: Unknown\r\nPartition number: Unknown\r\n"
                    "Begin: Unknown\r\nPartition Size: Unknown\r\n\r\n");
}

}  // namespace
