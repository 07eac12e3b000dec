// The Linux backend over a folder laid out as efivarfs.
#include <gtest/gtest.h>

#include <sstream>

#include "core/grub_parser/uefi_bootvars/bootvars_report.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"
#include "core/grub_parser/uefi_bootvars/variable_efivarfs.h"
#include "tests/core/grub_parser/uefi_bootvars/efivarfs_fixture.h"
#include "tests/support/zip_test_reader.h"

namespace {

using namespace UefiTest;

struct Efivars {
    TestSupport::TempFolder root;
    Uefi::VariableStorePtr store = Uefi::MakeEfivarfsStore(root.path());
    Uefi::VariablePtr Variable(const std::wstring& name) { return store->CreateVariable(Uefi::kEfiGlobalVariable, name, 7); }
    std::filesystem::path File(const std::string& name) { return root.path() / (name + kGlobalGuidSuffix); }
};

TEST(Efivarfs, ReadsAttributesThenValue) {
    Efivars efivars;
    WriteEfivarfsFile(efivars.File("Boot0003"), {0xAA, 0xBB}, 0x27);
    Uefi::VariablePtr variable = efivars.Variable(L"Boot0003");
    std::span<const std::uint8_t> data;
    ASSERT_TRUE(variable->GetData(data).Succeeded());
    EXPECT_EQ(Bytes(data.begin(), data.end()), (Bytes{0xAA, 0xBB}));
    EXPECT_EQ(variable->Attributes(), 0x27u);
    Common::Error missing = efivars.Variable(L"Boot0004")->Load();
    EXPECT_EQ(missing.Code(), Uefi::Codes::kNotFound);
    EXPECT_EQ(missing.Message(), L"Boot Entry 'Boot0004' cannot be found.");
}

TEST(Efivarfs, TruncatedOrUnreadableFilesAreErrorsNotAbsence) {
    Efivars efivars;
    WriteEfivarfsFile(efivars.File("Boot0001"), {});
    std::filesystem::resize_file(efivars.File("Boot0001"), 3);
    std::filesystem::create_directory(efivars.File("Boot0002"));
    for (const wchar_t* name : {L"Boot0001", L"Boot0002"}) {
        EXPECT_EQ(efivars.Variable(name)->Load().Code(), Uefi::Codes::kBootEntry);
        EXPECT_TRUE(efivars.Variable(name)->Exists());
    }
    std::ostringstream out;
    Uefi::WriteUefiBootVariablesReport(&out, *efivars.store);
    EXPECT_NE(out.str().find("Unable to obtain string representation for entry #1" + kSeparator +
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
}

TEST(Efivarfs, ListsBootEntriesOfTheGlobalGuidInAscendingOrder) {
    Efivars efivars;
    WriteFixtureMachine(efivars.root.path());
    EXPECT_TRUE(efivars.store->BootVariablesAllowed());
    std::vector<std::uint16_t> ids;
    ASSERT_TRUE(efivars.store->EnumerateBootEntryIds(ids).Succeeded());
    EXPECT_EQ(ids, (std::vector<std::uint16_t>{0, 1, 2, 10}));
}

TEST(Efivarfs, WritesCreateReplaceAndDelete) {
    Efivars efivars;
    Uefi::VariablePtr order = efivars.Variable(L"BootOrder");
    ASSERT_TRUE(order->SetData(Bytes{3, 0, 1, 0}).Succeeded());
    EXPECT_EQ(TestSupport::ReadFile(efivars.File("BootOrder")), std::string("\x07\0\0\0\x03\0\x01\0", 8));
    ASSERT_TRUE(order->SetData(Bytes{2, 0}).Succeeded());
    EXPECT_EQ(TestSupport::ReadFile(efivars.File("BootOrder")), std::string("\x07\0\0\0\x02\0", 6));
    ASSERT_TRUE(order->Remove().Succeeded());
    EXPECT_FALSE(std::filesystem::exists(efivars.File("BootOrder")));
    EXPECT_EQ(order->Remove().Code(), Uefi::Codes::kNotFound);
}

}  // namespace
