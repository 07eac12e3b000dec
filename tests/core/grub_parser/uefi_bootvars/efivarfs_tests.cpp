// The Linux backend over a folder laid out as efivarfs, and the report over the fixture machine there.
#include <gtest/gtest.h>

#include <sstream>

#include "core/grub_parser/uefi_bootvars/bootvars_report.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"
#include "core/grub_parser/uefi_bootvars/variable_efivarfs.h"
#include "tests/core/grub_parser/uefi_bootvars/efivarfs_fixture.h"
#include "tests/support/zip_test_reader.h"

namespace {

using namespace UefiTest;

std::string Report(Uefi::VariableStore& store) {
    std::ostringstream out;
    Uefi::WriteUefiBootVariablesReport(&out, store);
    return out.str();
}

TEST(Efivarfs, ReadsAttributesThenValue) {
    TestSupport::TempFolder root;
    WriteEfivarfsVariable(root.path(), "Boot0003", {0xAA, 0xBB}, 0x27);
    Uefi::VariableStorePtr store = Uefi::MakeEfivarfsStore(root.path());
    EXPECT_TRUE(store->BootVariablesAllowed());
    Uefi::VariablePtr variable = store->CreateVariable(Uefi::kEfiGlobalVariable, L"Boot0003", 7);
    std::span<const std::uint8_t> data;
    ASSERT_TRUE(variable->GetData(data).Succeeded());
    EXPECT_EQ(Bytes(data.begin(), data.end()), (Bytes{0xAA, 0xBB}));
    EXPECT_EQ(variable->Attributes(), 0x27u);

    Common::Error missing = store->CreateVariable(Uefi::kEfiGlobalVariable, L"Boot0004", 7)->Load();
    EXPECT_EQ(missing.Code(), Uefi::Codes::kNotFound);
    EXPECT_EQ(missing.Message(), L"Boot Entry 'Boot0004' cannot be found.");
    EXPECT_FALSE(store->CreateVariable(Uefi::kEfiGlobalVariable, L"Boot0004", 7)->Exists());
}

TEST(Efivarfs, UnreadableOrTruncatedFilesAreErrorsNotAbsence) {
    TestSupport::TempFolder root;
    WriteEfivarfsVariable(root.path(), "Boot0001", {});
    std::filesystem::resize_file(root.path() / (std::string("Boot0001") + kGlobalGuidSuffix), 3);
    std::filesystem::create_directory(root.path() / (std::string("Boot0002") + kGlobalGuidSuffix));
    Uefi::VariableStorePtr store = Uefi::MakeEfivarfsStore(root.path());
    for (const wchar_t* name : {L"Boot0001", L"Boot0002"}) {
        Uefi::VariablePtr variable = store->CreateVariable(Uefi::kEfiGlobalVariable, name, 7);
        EXPECT_EQ(variable->Load().Code(), Uefi::Codes::kBootEntry);
        EXPECT_TRUE(variable->Exists());
    }
    std::string text = Report(*store);
    EXPECT_NE(text.find("Unable to obtain string representation for entry #1" "\r\n\r\n***\r\n\r\n"
                        "Unable to obtain string representation for entry #2"),
              std::string::npos);
}

TEST(Efivarfs, MissingRootMeansNoUefi) {
    TestSupport::TempFolder parent;
    Uefi::VariableStorePtr store = Uefi::MakeEfivarfsStore(parent.path() / "efivars");
    EXPECT_FALSE(store->BootVariablesAllowed());
    std::vector<std::uint16_t> ids;
    EXPECT_EQ(store->EnumerateBootEntryIds(ids).Code(), Uefi::Codes::kNotImplemented);
    Uefi::VariablePtr order = store->CreateVariable(Uefi::kEfiGlobalVariable, L"BootOrder", 7);
    EXPECT_EQ(order->Load().Code(), Uefi::Codes::kNotImplemented);
    EXPECT_EQ(order->SetData(Bytes{1, 0}).Code(), Uefi::Codes::kNotImplemented);
    EXPECT_EQ(Report(*store), NoUefiReportText(false));
}

TEST(Efivarfs, ListsBootEntriesOfTheGlobalGuidInAscendingOrder) {
    TestSupport::TempFolder root;
    WriteFixtureMachine(root.path());
    std::vector<std::uint16_t> ids;
    ASSERT_TRUE(Uefi::MakeEfivarfsStore(root.path())->EnumerateBootEntryIds(ids).Succeeded());
    EXPECT_EQ(ids, (std::vector<std::uint16_t>{0, 1, 2, 10}));
}

TEST(Efivarfs, WritesCreateReplaceAndDelete) {
    TestSupport::TempFolder root;
    Uefi::VariableStorePtr store = Uefi::MakeEfivarfsStore(root.path());
    std::filesystem::path file = root.path() / (std::string("BootOrder") + kGlobalGuidSuffix);
    Uefi::VariablePtr order = store->CreateVariable(Uefi::kEfiGlobalVariable, L"BootOrder", 7);
    ASSERT_TRUE(order->SetData(Bytes{3, 0, 1, 0}).Succeeded());
    EXPECT_EQ(TestSupport::ReadFile(file), std::string("\x07\0\0\0\x03\0\x01\0", 8));
    ASSERT_TRUE(order->SetData(Bytes{2, 0}).Succeeded());
    EXPECT_EQ(TestSupport::ReadFile(file), std::string("\x07\0\0\0\x02\0", 6)) << "a shorter value replaces the file";
    ASSERT_TRUE(order->Remove().Succeeded());
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(order->Remove().Code(), Uefi::Codes::kNotFound);
}

TEST(Efivarfs, FixtureMachineReport) {
    TestSupport::TempFolder root;
    WriteFixtureMachine(root.path());
    EXPECT_EQ(Report(*Uefi::MakeEfivarfsStore(root.path())), FixtureReportText());
}

}  // namespace
