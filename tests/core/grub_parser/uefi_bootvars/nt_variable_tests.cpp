// The firmware-variable rules of the Windows backend, driven through fake native routines: lookup and
// privilege order, buffer growing, read-once, save rules, status mapping and the boot-entry list walk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/grub_parser/uefi_bootvars/nt_variable.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_fakes.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_test_bytes.h"

namespace {

using ::testing::ElementsAre;
using UefiTest::Bytes;
using UefiTest::FakeNativeRoutines;

struct Backend {
    std::shared_ptr<FakeNativeRoutines> routines = std::make_shared<FakeNativeRoutines>();
    Uefi::WindowsVariableStore store{routines};
    Uefi::VariablePtr Variable(const wchar_t* name) {
        return store.CreateVariable(Uefi::kEfiGlobalVariable, name, Uefi::kBootVariableAttributes);
    }
};

Common::Error PrivilegeRefused() {
    return Common::Error::Make(Uefi::Codes::kPrivilege, L"Failed to obtain privilege 'SeSystemEnvironmentPrivilege'.");
}

// One record of NtEnumerateBootEntries' output: NextEntryOffset, then BOOT_ENTRY's Version, Length, Id and
// `extra` bytes of the rest of the entry.
Bytes BootEntryRecord(std::uint32_t next, std::uint32_t id, std::size_t extra = 8) {
    Bytes record;
    UefiTest::PutU32(record, next);
    UefiTest::PutU32(record, 1);
    UefiTest::PutU32(record, static_cast<std::uint32_t>(12 + extra));
    UefiTest::PutU32(record, id);
    record.resize(record.size() + extra, 0xEE);
    return record;
}

TEST(WindowsVariable, NoUefiFirmwareAnswersNotImplemented) {
    Backend backend;
    backend.routines->queryStatus = Uefi::NtStatus::kNotImplemented;
    Uefi::VariablePtr order = backend.Variable(L"BootOrder");
    Common::Error error = order->Load();
    EXPECT_EQ(error.Code(), Uefi::Codes::kNotImplemented);
    EXPECT_EQ(error.Message(), L"Not implemented.");
    EXPECT_EQ(error.Cause().Code(), Uefi::NtStatus::kNotImplemented) << "the NT status is attached";
    EXPECT_FALSE(order->Loaded());
}

TEST(WindowsVariable, StatusesMapOntoTheFacilityCodes) {
    struct Case {
        std::uint32_t status, code;
        std::wstring message;
    } cases[] = {
        {Uefi::NtStatus::kVariableNotFound, Uefi::Codes::kNotFound, L"Boot Entry 'Boot0003' cannot be found."},
        {Uefi::NtStatus::k0454, Uefi::Codes::kStatus0454, L""},
        {0xC0000022, Uefi::Codes::kBootEntry, L"An error of Boot Entry 'Boot0003'."},
    };
    for (const Case& c : cases) {
        Backend backend;
        backend.routines->queryStatus = c.status;
        Common::Error error = backend.Variable(L"Boot0003")->Load();
        EXPECT_EQ(error.Code(), c.code);
        EXPECT_EQ(error.Message(), c.message);
        EXPECT_EQ(error.Cause().Code(), c.status);
    }
}

TEST(WindowsVariable, ValueLargerThanTheFirstBufferIsReadWholeAfterOneRetry) {
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
}

TEST(WindowsVariable, ValueIsReadOnceEvenIfTheFirmwareChanges) {
    Backend backend;
    backend.routines->firmware[L"Boot0001"] = {{1, 2, 3}};
    Uefi::VariablePtr variable = backend.Variable(L"Boot0001");
    ASSERT_TRUE(variable->Load().Succeeded());
    backend.routines->firmware[L"Boot0001"] = {{9}};
    backend.routines->calls.clear();
    std::span<const std::uint8_t> data;
    ASSERT_TRUE(variable->GetData(data).Succeeded());
    EXPECT_EQ(Bytes(data.begin(), data.end()), (Bytes{1, 2, 3}));
    EXPECT_TRUE(backend.routines->calls.empty());
}

TEST(WindowsVariable, ReadingLooksUpBeforeThePrivilegeAndWritingAfterIt) {
    Backend missingQuery;
    missingQuery.routines->findQueryError = Common::Error::Make(Uefi::Codes::kProcedureNotFound, L"missing");
    EXPECT_EQ(missingQuery.Variable(L"BootOrder")->Load().Code(), Uefi::Codes::kProcedureNotFound);
    EXPECT_THAT(missingQuery.routines->calls, ElementsAre("find query"));

    Backend refused;
    refused.routines->privilegeError = PrivilegeRefused();
    EXPECT_EQ(refused.Variable(L"BootOrder")->SetData(Bytes{1, 0}).Code(), Uefi::Codes::kPrivilege);
    EXPECT_THAT(refused.routines->calls, ElementsAre("privilege"));
}

TEST(WindowsVariable, ExistsIsFalseOnlyForNotFound) {
    Backend backend;
    backend.routines->firmware[L"Boot0001"] = {{1}};
    EXPECT_TRUE(backend.Variable(L"Boot0001")->Exists());
    EXPECT_FALSE(backend.Variable(L"Boot0002")->Exists());

    Backend refused;
    refused.routines->privilegeError = PrivilegeRefused();
    EXPECT_TRUE(refused.Variable(L"Boot0002")->Exists());
    Backend broken;
    broken.routines->queryStatus = 0xC0000001;
    EXPECT_TRUE(broken.Variable(L"Boot0002")->Exists());
}

TEST(WindowsVariable, SaveNeedsAValueAndSetDataOrRemoveGiveOne) {
    Backend backend;
    Uefi::VariablePtr fresh = backend.Variable(L"Boot0004");
    Common::Error error = fresh->Save();
    EXPECT_EQ(error.Code(), Uefi::Codes::kNotLoaded);
    EXPECT_EQ(error.Message(), L"");
    EXPECT_TRUE(backend.routines->calls.empty()) << "nothing is written";

    ASSERT_TRUE(fresh->SetData(Bytes{5, 6}).Succeeded());
    EXPECT_THAT(backend.routines->calls, ElementsAre("privilege", "find set", "set 2"));
    EXPECT_EQ(backend.routines->firmware[L"Boot0004"].data, (Bytes{5, 6}));
    EXPECT_EQ(backend.routines->firmware[L"Boot0004"].attributes, Uefi::kBootVariableAttributes);

    // An empty value goes out as a null pointer and length 0, which deletes the variable.
    ASSERT_TRUE(fresh->Remove().Succeeded());
    EXPECT_EQ(backend.routines->calls.back(), "set 0");
    EXPECT_EQ(backend.routines->firmware.count(L"Boot0004"), 0u);
}

TEST(WindowsVariable, FailedCallsLeaveTheObjectAsItWas) {
    Backend backend;
    backend.routines->firmware[L"Boot0001"] = {{1, 2}};
    Uefi::VariablePtr variable = backend.Variable(L"Boot0001");
    backend.routines->queryStatus = 0xC0000001;
    std::span<const std::uint8_t> data;
    EXPECT_EQ(variable->GetData(data).Code(), Uefi::Codes::kBootEntry);
    EXPECT_TRUE(data.empty()) << "outputs untouched on failure";
    EXPECT_FALSE(variable->Loaded());

    backend.routines->queryStatus.reset();
    ASSERT_TRUE(variable->Load().Succeeded());
    backend.routines->setStatus = 0xC0000001;
    EXPECT_EQ(variable->Save().Code(), Uefi::Codes::kBootEntry);
}

TEST(BootEntriesEnumeratorWindows, ListsIdsInFirmwareOrderGrowingItsBuffer) {
    Backend backend;
    // Enough records to pass the first 4,096 bytes; the last one's next-offset is 0.
    Bytes list;
    std::vector<std::uint16_t> expected;
    for (std::uint16_t id = 300; id > 0; --id) {
        Bytes record = BootEntryRecord(id == 1 ? 0 : 24, id);
        list.insert(list.end(), record.begin(), record.end());
        expected.push_back(id);
    }
    ASSERT_GT(list.size(), 4096u);
    backend.routines->bootEntryList = list;
    std::vector<std::uint16_t> ids;
    ASSERT_TRUE(backend.store.EnumerateBootEntryIds(ids).Succeeded());
    EXPECT_EQ(ids, expected);
    EXPECT_THAT(backend.routines->calls,
                ElementsAre("find enumerate", "privilege", "enumerate 4096", "enumerate " + std::to_string(list.size())));
}

TEST(BootEntriesEnumeratorWindows, FailuresNameTheRoutine) {
    Backend missing;
    missing.routines->findEnumerateError = Common::Error::Make(Uefi::Codes::kProcedureNotFound, L"missing");
    std::vector<std::uint16_t> ids;
    EXPECT_EQ(missing.store.EnumerateBootEntryIds(ids).Code(), Uefi::Codes::kProcedureNotFound);
    EXPECT_THAT(missing.routines->calls, ElementsAre("find enumerate"));

    Backend denied;
    denied.routines->enumerateStatus = 0xC0000022;
    Common::Error error = denied.store.EnumerateBootEntryIds(ids);
    EXPECT_EQ(error.Code(), Uefi::Codes::kBootEntry);
    EXPECT_EQ(error.Message(), L"An error of Boot Entry 'NtEnumerateBootEntries'.");
}

TEST(ParseBootEntryList, WalksRecordsByTheirOffsets) {
    // A zero next-offset stands for the entry's length plus 4: the walk ends exactly at the list's end.
    Bytes list = UefiTest::Concat({BootEntryRecord(24, 3), BootEntryRecord(36, 1, 20), BootEntryRecord(0, 0x10007)});
    EXPECT_EQ(Uefi::ParseBootEntryList(list), (std::vector<std::uint16_t>{3, 1, 7}));
    // A zero next-offset before the end: the following record is still read.
    Bytes early = UefiTest::Concat({BootEntryRecord(0, 5), BootEntryRecord(0, 6)});
    EXPECT_EQ(Uefi::ParseBootEntryList(early), (std::vector<std::uint16_t>{5, 6}));
}

TEST(ParseBootEntryList, BadOffsetsEndTheWalk) {
    // An offset past the end, a record cut short, and an entry length that wraps the 32-bit sum.
    EXPECT_EQ(Uefi::ParseBootEntryList(UefiTest::Concat({BootEntryRecord(5000, 2), BootEntryRecord(0, 9)})),
              (std::vector<std::uint16_t>{2}));
    Bytes cut = UefiTest::Concat({BootEntryRecord(24, 4), Bytes(10, 0)});
    EXPECT_EQ(Uefi::ParseBootEntryList(cut), (std::vector<std::uint16_t>{4}));
    Bytes wrap = BootEntryRecord(0, 8);
    wrap[8] = wrap[9] = wrap[10] = 0xFF;
    wrap[11] = 0xFF;
    EXPECT_EQ(Uefi::ParseBootEntryList(UefiTest::Concat({wrap, BootEntryRecord(0, 9)})), (std::vector<std::uint16_t>{8}));
    EXPECT_TRUE(Uefi::ParseBootEntryList({}).empty());
}

TEST(BootEntryVariableName, FourUpperCaseHexDigits) {
    EXPECT_EQ(Uefi::BootEntryVariableName(0), L"Boot0000");
    EXPECT_EQ(Uefi::BootEntryVariableName(0x00AB), L"Boot00AB");
    EXPECT_EQ(Uefi::BootEntryVariableName(0xFFFF), L"BootFFFF");
    EXPECT_EQ(Uefi::ParseBootEntryVariableName(L"Boot00AB"), 0x00AB);
    for (const wchar_t* other : {L"Boot00ab", L"BootOrder", L"BootNext", L"boot0001", L"Boot001", L"Boot00012"}) {
        EXPECT_FALSE(Uefi::ParseBootEntryVariableName(other).has_value());
    }
}

}  // namespace
