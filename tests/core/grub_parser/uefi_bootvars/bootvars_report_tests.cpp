// The text of "uefi_vars.txt" over a fake firmware: sections, separators, field lines and their limits.
#include <gtest/gtest.h>

#include <sstream>

#include "core/grub_parser/uefi_bootvars/boot_order.h"
#include "core/grub_parser/uefi_bootvars/bootvars_report.h"
#include "core/grub_parser/uefi_bootvars/load_options_impl.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_fakes.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_test_bytes.h"

namespace {

using namespace UefiTest;
using namespace std::string_literals;

const std::string kSeparator = "\r\n\r\n***\r\n\r\n";

std::string Report(Uefi::VariableStore& store) {
    std::ostringstream out;
    EXPECT_TRUE(Uefi::WriteUefiBootVariablesReport(&out, store).Succeeded());
    return out.str();
}

// The six field lines of an entry with a GPT hard-drive node, the given description and no file node.
Bytes EntryWithDescription(std::u16string_view description, std::uint32_t partition = 1) {
    return LoadOption(1, description, Concat({HardDriveNode(partition, 34, 99, SampleGptSignature(), 2, 2), EndNode()}));
}

TEST(UefiBootVariablesReport, FixtureMachine) {
    FakeVariableStore store(FixtureVariables());
    EXPECT_EQ(Report(store), FixtureReportText());
}

TEST(UefiBootVariablesReport, WithoutUefiBothSectionsSayItIsNotEnabled) {
    FakeVariableStore store;
    store.allowed = false;
    store.enumerateError = Uefi::MakeNotImplementedError();
    store.readErrors[L"BootOrder"] = Uefi::MakeNotImplementedError();
    EXPECT_EQ(Report(store), NoUefiReportText(false));
}

TEST(UefiBootVariablesReport, NoEntriesAndAMissingBootOrder) {
    FakeVariableStore store;
    EXPECT_EQ(Report(store), "Boot variables are allowed on this system" + kSeparator + "Boot variables information:" +
                                 kSeparator + "Could not obtain Boot Order, UEFI is not enabled");
}

TEST(UefiBootVariablesReport, EntryWhoseVariableCannotBeReadAndAnEmptyOrder) {
    FakeVariableStore store;
    store.ids = std::vector<std::uint16_t>{0x1234};
    store.values[L"BootOrder"].data = {};
    EXPECT_EQ(Report(store), "Boot variables are allowed on this system" + kSeparator + "Boot variables information:" +
                                 kSeparator + "Unable to obtain string representation for entry #4660" +
                                 "Boot variables in Boot Order:" + kSeparator + kSeparator);
}

TEST(UefiBootVariablesReport, DescriptionIsNarrowedToLowBytes) {
    // U+00E9 keeps its byte; U+0142 becomes 0x42 and U+4E2D becomes 0x2D; U+1F600 is two UTF-16 units.
    FakeVariableStore store(std::map<std::wstring, Bytes>{{L"Boot0001", EntryWithDescription(u"Caf\u00e9 \u0142\u4e2d \U0001F600")}});
    std::string text = Report(store);
    EXPECT_NE(text.find("Description: Caf\xE9 B- \x3D\x00\r\n"s), std::string::npos) << text;
}

TEST(UefiBootVariablesReport, FormattedLinesAreCutAtTheFormatterLimit) {
    std::u16string longText(2000, u'a');
    FakeVariableStore store(std::map<std::wstring, Bytes>{{L"Boot0001", EntryWithDescription(longText, 0x10005)}});
    std::string text = Report(store);
    std::string line = "Description: " + std::string(1023 - 13, 'a') + "\r\n";
    EXPECT_NE(text.find(line + "Path: Unknown\r\n"), std::string::npos);
    EXPECT_EQ(text.find(std::string(1011, 'a')), std::string::npos);
    EXPECT_NE(text.find("Partition number: 5\r\n"), std::string::npos) << "low 16 bits of the number";
}

TEST(UefiBootVariablesReport, HexDumpOfTheWholeValue) {
    FakeVariableStore store(std::map<std::wstring, Bytes>{{L"Boot0003", LoadOption(1, u"t", EndNode())}});
    EXPECT_NE(Report(store).find("---- 3 ----\r\nDescription: t\r\n"), std::string::npos);
    EXPECT_NE(Report(store).find("Partition Size: Unknown\r\nHex dump\r\n01 00 00 00 04 00 74 00 00 00 7F FF 04 00 \r\n"),
              std::string::npos);
}

class EmptyValueEntry final : public Uefi::BootEntry {
public:
    std::uint16_t GetNumber() const override { return 7; }
    Common::Error GetLoadOptions(std::shared_ptr<Uefi::LoadOptions>& options) override {
        options = decoded;
        return {};
    }
    Common::Error GetRawData(std::vector<std::uint8_t>& data) override {
        data.clear();
        return {};
    }
    std::shared_ptr<Uefi::LoadOptions> decoded;
};

TEST(BuildBootEntryText, EmptyRawValueHasNoHexDump) {
    EmptyValueEntry entry;
    auto options = std::make_shared<Uefi::LoadOptionsImpl>();
    Bytes value = LoadOption(1, u"Empty", {});
    Uefi::ByteReader reader(value);
    ASSERT_TRUE(options->Fill(reader).Succeeded());
    entry.decoded = options;
    std::string text;
    ASSERT_TRUE(Uefi::BuildBootEntryText(entry, text).Succeeded());
    EXPECT_EQ(text, "---- 7 ----\r\nDescription: Empty\r\nPath: Unknown\r\nGUID: Unknown\r\nPartition number: Unknown\r\n"
                    "Begin: Unknown\r\nPartition Size: Unknown\r\n\r\n");
}

TEST(BootOrder, OddLengthDropsTheLastByte) {
    FakeVariableStore store;
    store.values[L"BootOrder"].data = {0x03, 0x00, 0x0A, 0x00, 0x01};
    std::shared_ptr<Uefi::BootOrder> order;
    ASSERT_TRUE(Uefi::GetBootOrder(store, order).Succeeded());
    std::vector<std::uint16_t> numbers;
    for (const Uefi::BootEntryPtr& entry : *order) numbers.push_back(entry->GetNumber());
    EXPECT_EQ(numbers, (std::vector<std::uint16_t>{3, 10}));
    EXPECT_EQ(store.reads, 1) << "entries named by the order are not read";
}

}  // namespace
