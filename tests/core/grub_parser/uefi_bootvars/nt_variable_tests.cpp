// The firmware-variable rules of the Windows backend, driven through fake native routines: lookup and
// privilege order, buffer growing, read-once, save rules, status mapping and the boot-entry list walk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/core/grub_parser/uefi_bootvars/uefi_fakes.h"

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using namespace UefiTest;

struct Backend {
    std::shared_ptr<FakeNativeRoutines> routines = std::make_shared<FakeNativeRoutines>();
    Uefi::WindowsVariableStore store{routines};
    Uefi::VariablePtr Variable(const wchar_t* name) {
        return store.CreateVariable(Uefi::kEfiGlobalVariable, name, Uefi::kBootVariableAttributes);
    }
};

// NtEnumerateBootEntries' record: NextEntryOffset, then BOOT_ENTRY's Version, Length (12 + 8 bytes more)
// and Id.
Bytes BootEntryRecord(std::uint32_t next, std::uint32_t id, std::uint32_t length = 20) {
    Bytes record;
    for (std::uint32_t field : {next, 1u, length, id}) PutU32(record, field);
    record.resize(record.size() + 8, 0xEE);
    return record;
}

TEST(WindowsVariable, FailingStatusesMapOntoTheFacilityCodes) {
    const std::tuple<std::uint32_t, std::uint32_t, std::wstring> cases[] = {
        {Uefi::NtStatus::kNotImplemented, Uefi::Codes::kNotImplemented, L"Not implemented."},
        {Uefi::NtStatus::kVariableNotFound, Uefi::Codes::kNotFound, L"Boot Entry 'BootOrder' cannot be found."},
        {0xC0000454, Uefi::Codes::kStatus0454, L""},
        {0xC0000022, Uefi::Codes::kBootEntry, L"An error of Boot Entry 'BootOrder'."},
    };
    for (const auto& [status, code, message] : cases) {
        Backend backend;
        backend.routines->queryStatus = status;
        Uefi::VariablePtr order = backend.Variable(L"BootOrder");
        Common::Error error = order->Load();
        EXPECT_EQ(error.Code(), code);
        EXPECT_EQ(error.Message(), message);
        EXPECT_EQ(error.Cause().Code(), status) << "the NT status is attached";
        EXPECT_FALSE(order->Loaded());
    }
}

TEST(WindowsVariable, LargeValueIsReadWholeAfterOneRetryAndOnlyOnce) {
    Backend backend;
    Bytes big(1500);
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<std::uint8_t>(i * 7);
    backend.routines->firmware[L"Boot0001"] = {big, 3};
    Uefi::VariablePtr variable = backend.Variable(L"Boot0001");
    std::span<const std::uint8_t> data;
    ASSERT_TRUE(variable->GetData(data).Succeeded());
    EXPECT_EQ(Bytes(data.begin(), data.end()), big);
    EXPECT_EQ(variable->Attributes(), 3u) << "the firmware's attributes replace the given ones";
    EXPECT_THAT(backend.routines->calls, ElementsAre("find query", "privilege", "query 1024", "query 1500"));

    backend.routines->firmware[L"Boot0001"] = {{9}, 7};
    ASSERT_TRUE(variable->GetData(data).Succeeded());
    EXPECT_EQ(data.size(), 1500u) << "a loaded value is not read again";
    EXPECT_EQ(backend.routines->calls.size(), 4u);
}

TEST(WindowsVariable, ReadingLooksUpBeforeThePrivilegeAndWritingAfterIt) {
    Backend missing;
    missing.routines->findQueryError = Common::Error::Make(Uefi::Codes::kProcedureNotFound, L"missing");
    EXPECT_EQ(missing.Variable(L"BootOrder")->Load().Code(), Uefi::Codes::kProcedureNotFound);
    EXPECT_THAT(missing.routines->calls, ElementsAre("find query"));

    Backend refused;
    refused.routines->privilegeError = Common::Error::Make(Uefi::Codes::kPrivilege, L"refused");
    EXPECT_EQ(refused.Variable(L"BootOrder")->SetData(Bytes{1, 0}).Code(), Uefi::Codes::kPrivilege);
    EXPECT_THAT(refused.routines->calls, ElementsAre("privilege"));
}

TEST(WindowsVariable, ExistsIsFalseOnlyForNotFound) {
    Backend backend;
    backend.routines->firmware[L"Boot0001"] = {{1}, 7};
    EXPECT_TRUE(backend.Variable(L"Boot0001")->Exists());
    EXPECT_FALSE(backend.Variable(L"Boot0002")->Exists());
    backend.routines->privilegeError = Common::Error::Make(Uefi::Codes::kPrivilege, L"refused");
    EXPECT_TRUE(backend.Variable(L"Boot0002")->Exists());
}

TEST(WindowsVariable, SaveNeedsAValueAndSetDataOrRemoveGiveOne) {
    Backend backend;
    Uefi::VariablePtr fresh = backend.Variable(L"Boot0004");
    Common::Error error = fresh->Save();
    EXPECT_EQ(error.Code(), Uefi::Codes::kNotLoaded);
    EXPECT_EQ(error.Message(), L"");
    EXPECT_THAT(error.Fields(), Contains(AllOf(Field(&Common::ErrorField::name, "$func"),
                                               Field(&Common::ErrorField::text, "Uefi::WindowsVariable::Save"))));
    EXPECT_TRUE(backend.routines->calls.empty()) << "nothing is written";

    ASSERT_TRUE(fresh->SetData(Bytes{5, 6}).Succeeded());
    EXPECT_THAT(backend.routines->calls, ElementsAre("privilege", "find set", "set 2"));
    EXPECT_EQ(backend.routines->firmware[L"Boot0004"], std::pair(Bytes{5, 6}, Uefi::kBootVariableAttributes));
    // An empty value goes out as length 0, which deletes the variable.
    ASSERT_TRUE(fresh->Remove().Succeeded());
    EXPECT_EQ(backend.routines->calls.back(), "set 0");
    EXPECT_EQ(backend.routines->firmware.count(L"Boot0004"), 0u);
    backend.routines->setStatus = 0xC0000022;
    EXPECT_EQ(fresh->Save().Code(), Uefi::Codes::kBootEntry);
}

TEST(BootEntriesEnumeratorWindows, ListsIdsInFirmwareOrderGrowingItsBuffer) {
    Backend backend;
    std::vector<std::uint16_t> expected;
    for (std::uint16_t id = 300; id > 0; --id) {
        Bytes record = BootEntryRecord(id == 1 ? 0 : 24, id);
        backend.routines->bootEntryList.insert(backend.routines->bootEntryList.end(), record.begin(), record.end());
        expected.push_back(id);
    }
    std::vector<std::uint16_t> ids;
    ASSERT_TRUE(backend.store.EnumerateBootEntryIds(ids).Succeeded());
    EXPECT_EQ(ids, expected);
    EXPECT_THAT(backend.routines->calls, ElementsAre("find enumerate", "privilege", "enumerate 4096", "enumerate 7200"));

    backend.routines->enumerateStatus = 0xC0000022;
    EXPECT_EQ(backend.store.EnumerateBootEntryIds(ids).Message(), L"An error of Boot Entry 'NtEnumerateBootEntries'.");
    Backend missing;
    missing.routines->findEnumerateError = Common::Error::Make(Uefi::Codes::kProcedureNotFound, L"missing");
    EXPECT_EQ(missing.store.EnumerateBootEntryIds(ids).Code(), Uefi::Codes::kProcedureNotFound);
}

TEST(ParseBootEntryList, WalksRecordsByTheirOffsetsAndStopsAtBadOnes) {
    const std::pair<Bytes, std::vector<std::uint16_t>> cases[] = {
        // Ids are the low 16 bits; a zero next-offset ends the list, though the routine's count goes on.
        {Concat({BootEntryRecord(24, 3), BootEntryRecord(24, 0x10007), BootEntryRecord(0, 1), BootEntryRecord(0, 9)}), {3, 7, 1}},
        // An offset past the end; a record cut short; a zeroed record; a Length past the end.
        {Concat({BootEntryRecord(5000, 2), BootEntryRecord(0, 9)}), {2}},
        {Concat({BootEntryRecord(24, 4), Bytes(10, 0)}), {4}},
        {Concat({BootEntryRecord(24, 4), Bytes(24, 0)}), {4}},
        {Concat({BootEntryRecord(24, 5), BootEntryRecord(0, 8, 21)}), {5}},
        {BootEntryRecord(0, 8, 0xFFFFFFFF), {}},
    };
    for (const auto& [bytes, ids] : cases) EXPECT_EQ(Uefi::ParseBootEntryList(bytes), ids);
}

}  // namespace
