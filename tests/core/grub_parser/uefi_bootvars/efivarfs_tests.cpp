// The Linux backend over a folder laid out as efivarfs.
#include <gtest/gtest.h>

#include <sys/stat.h>

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
    Bytes value(5000);  // more than one read of 4,096 bytes
    for (std::size_t i = 0; i < value.size(); ++i) value[i] = static_cast<std::uint8_t>(i * 7);
    WriteEfivarfsFile(efivars.File("Boot0003"), value, 0x27);
    Uefi::VariablePtr variable = efivars.Variable(L"Boot0003");
    std::span<const std::uint8_t> data;
    ASSERT_TRUE(variable->GetData(data).Succeeded());
    EXPECT_EQ(Bytes(data.begin(), data.end()), value);
    EXPECT_EQ(variable->Attributes(), 0x27u);
    Common::Error missing = efivars.Variable(L"Boot0004")->Load();
    EXPECT_EQ(missing.Code(), Uefi::Codes::kNotFound);
    EXPECT_EQ(missing.Message(), L"Boot Entry 'Boot0004' cannot be found.");
}

// A truncated file, a folder, a FIFO (a plain open would wait for a writer forever), a file past 1 MiB and
// a link to an endless device: each is an unreadable entry, and the report walks on past it.
TEST(Efivarfs, TruncatedOrUnreadableFilesAreErrorsNotAbsence) {
    Efivars efivars;
    WriteEfivarfsFile(efivars.File("Boot0001"), {});
    std::filesystem::resize_file(efivars.File("Boot0001"), 3);
    std::filesystem::create_directory(efivars.File("Boot0002"));
    ASSERT_EQ(mkfifo(efivars.File("Boot0003").c_str(), 0600), 0);
    WriteEfivarfsFile(efivars.File("Boot0004"), {});
    std::filesystem::resize_file(efivars.File("Boot0004"), 1024 * 1024 + 1);
    std::filesystem::create_symlink("/dev/zero", efivars.File("Boot0005"));
    std::string lines;
    for (int number = 1; number <= 5; ++number) {
        std::wstring name = L"Boot000" + std::to_wstring(number);
        EXPECT_EQ(efivars.Variable(name)->Load().Code(), Uefi::Codes::kBootEntry) << number;
        lines += (number > 1 ? kSeparator : "") + "Unable to obtain string representation for entry #" + std::to_string(number);
    }
    std::ostringstream out;
    Uefi::WriteUefiBootVariablesReport(&out, *efivars.store);
    EXPECT_NE(out.str().find(lines), std::string::npos);
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
