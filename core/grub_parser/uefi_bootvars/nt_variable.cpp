// The Windows backend's rules over the native firmware-variable routines.
#include "core/grub_parser/uefi_bootvars/nt_variable.h"

#include <algorithm>

#include "core/grub_parser/uefi_bootvars/uefi_errors.h"

namespace Uefi {
namespace {

constexpr std::uint32_t kFirstQueryBufferSize = 1024;
constexpr std::uint32_t kFirstEnumerationBufferSize = 4096;
constexpr std::size_t kNextOffsetSize = 4;
// BOOT_ENTRY's Version, Length and Id: what a record must hold for its id to be taken.
constexpr std::uint32_t kBootEntryMinimumLength = 12;
constexpr std::size_t kBootEntryRecordHeaderSize = kNextOffsetSize + kBootEntryMinimumLength;

std::uint32_t U32At(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(bytes[offset]) | static_cast<std::uint32_t>(bytes[offset + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[offset + 2]) << 16 | static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

}  // namespace

Common::Error WindowsVariable::ReadValue(std::vector<std::uint8_t>& data, std::uint32_t& attributes) {
    // Reading looks the routine up before taking the privilege; writing does it the other way round.
    if (Common::Error error = routines_->FindQueryRoutine(); error.Failed()) return error;
    if (Common::Error error = routines_->ObtainPrivilege(); error.Failed()) return error;

    std::vector<std::uint8_t> buffer(kFirstQueryBufferSize);
    std::uint32_t length = kFirstQueryBufferSize;
    std::uint32_t status = 0;
    if (Common::Error error = routines_->Query(Name(), VendorGuid(), buffer, length, attributes, status); error.Failed()) {
        return error;
    }
    // The routine writes back the size it needs; a value may grow between calls, so ask until it fits.
    while (status == NtStatus::kBufferTooSmall) {
        buffer.assign(length, 0);
        if (Common::Error error = routines_->Query(Name(), VendorGuid(), buffer, length, attributes, status);
            error.Failed()) {
            return error;
        }
    }
    if (status != 0) return GetUefiErrorFromNtStatus(status, Name());
    buffer.resize(std::min<std::size_t>(length, buffer.size()));
    data = std::move(buffer);
    return {};
}

Common::Error WindowsVariable::Save() {
    if (!Loaded()) return MakeNotLoadedError();
    if (Common::Error error = routines_->ObtainPrivilege(); error.Failed()) return error;
    if (Common::Error error = routines_->FindSetRoutine(); error.Failed()) return error;
    std::uint32_t status = 0;
    if (Common::Error error = routines_->Set(Name(), VendorGuid(), Data(), Attributes(), status); error.Failed()) {
        return error;
    }
    if (status != 0) return GetUefiErrorFromNtStatus(status, Name());
    return {};
}

Common::Error BootEntriesEnumeratorWindows::EnumerateBootEntryIds(std::vector<std::uint16_t>& ids) {
    if (Common::Error error = routines_->FindEnumerateRoutine(); error.Failed()) return error;
    if (Common::Error error = routines_->ObtainPrivilege(); error.Failed()) return error;

    std::vector<std::uint8_t> buffer(kFirstEnumerationBufferSize);
    std::uint32_t length = kFirstEnumerationBufferSize;
    std::uint32_t status = routines_->Enumerate(buffer, length);
    while (status == NtStatus::kBufferTooSmall) {
        buffer.assign(length, 0);
        status = routines_->Enumerate(buffer, length);
    }
    if (status != 0) return GetUefiErrorFromNtStatus(status, L"NtEnumerateBootEntries");
    ids = ParseBootEntryList(std::span<const std::uint8_t>(buffer).first(std::min<std::size_t>(length, buffer.size())));
    return {};
}

VariablePtr WindowsVariableStore::CreateVariable(const Guid& vendor, std::wstring name, std::uint32_t attributes) {
    return std::make_shared<WindowsVariable>(routines_, vendor, std::move(name), attributes);
}

Common::Error WindowsVariableStore::EnumerateBootEntryIds(std::vector<std::uint16_t>& ids) {
    return BootEntriesEnumeratorWindows(routines_).EnumerateBootEntryIds(ids);
}

std::vector<std::uint16_t> ParseBootEntryList(std::span<const std::uint8_t> bytes) {
    std::vector<std::uint16_t> ids;
    std::span<const std::uint8_t> left = bytes;
    while (left.size() >= kBootEntryRecordHeaderSize) {
        std::uint32_t next = U32At(left, 0);
        std::uint32_t entryLength = U32At(left, 8);
        if (entryLength < kBootEntryMinimumLength || entryLength > left.size() - kNextOffsetSize) break;
        ids.push_back(static_cast<std::uint16_t>(U32At(left, 12)));
        if (next == 0 || next >= left.size()) break;
        left = left.subspan(next);
    }
    return ids;
}

}  // namespace Uefi
