// In-memory stand-ins for the firmware: a variable store, and the three native routines as the Windows
// backend sees them.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "core/grub_parser/uefi_bootvars/nt_variable.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_test_bytes.h"

namespace UefiTest {

// Values of the global-variable GUID by name; the boot entries listed are the Boot#### names held.
class FakeVariableStore final : public Uefi::VariableStore {
public:
    std::map<std::wstring, Bytes> values;
    std::map<std::wstring, Common::Error> readErrors;  // names listed as entries but unreadable
    Common::Error enumerateError;
    bool allowed = true;

    bool BootVariablesAllowed() override { return allowed; }
    Uefi::VariablePtr CreateVariable(const Uefi::Guid& vendor, std::wstring name, std::uint32_t attributes) override {
        return std::make_shared<Variable>(*this, vendor, std::move(name), attributes);
    }
    Common::Error EnumerateBootEntryIds(std::vector<std::uint16_t>& ids) override {
        if (enumerateError.Failed()) return enumerateError;
        std::set<std::uint16_t> found;
        auto add = [&](const std::wstring& name) {
            if (auto number = Uefi::ParseBootEntryVariableName(name)) found.insert(*number);
        };
        for (const auto& entry : values) add(entry.first);
        for (const auto& entry : readErrors) add(entry.first);
        ids.assign(found.begin(), found.end());
        return {};
    }

private:
    class Variable final : public Uefi::Variable {
    public:
        Variable(FakeVariableStore& store, const Uefi::Guid& vendor, std::wstring name, std::uint32_t attributes)
            : Uefi::Variable(vendor, std::move(name), attributes), store_(store) {}
        Common::Error Save() override { return {}; }

    protected:
        Common::Error ReadValue(std::vector<std::uint8_t>& data, std::uint32_t&) override {
            if (auto error = store_.readErrors.find(Name()); error != store_.readErrors.end()) return error->second;
            auto value = store_.values.find(Name());
            if (value == store_.values.end()) return Uefi::MakeNotFoundError(Name());
            data = value->second;
            return {};
        }

    private:
        FakeVariableStore& store_;
    };
};

// Firmware behind the native routines' conventions; `calls` records what was asked, in order.
class FakeNativeRoutines final : public Uefi::NativeRoutines {
public:
    std::map<std::wstring, std::pair<Bytes, std::uint32_t>> firmware;  // value and attributes
    std::optional<std::uint32_t> queryStatus;  // answered instead of looking into `firmware`
    std::uint32_t setStatus = 0, enumerateStatus = 0;
    Bytes bootEntryList;
    Common::Error findQueryError, findSetError, findEnumerateError, privilegeError;
    std::vector<std::string> calls;

    Common::Error FindQueryRoutine() override { return Record("find query", findQueryError); }
    Common::Error FindSetRoutine() override { return Record("find set", findSetError); }
    Common::Error FindEnumerateRoutine() override { return Record("find enumerate", findEnumerateError); }
    Common::Error ObtainPrivilege() override { return Record("privilege", privilegeError); }

    Common::Error Query(const std::wstring& name, const Uefi::Guid&, std::span<std::uint8_t> buffer,
                        std::uint32_t& length, std::uint32_t& attributes, std::uint32_t& status) override {
        calls.push_back("query " + std::to_string(length));
        auto value = firmware.find(name);
        if (queryStatus || value == firmware.end()) {
            status = queryStatus.value_or(Uefi::NtStatus::kVariableNotFound);
        } else {
            status = Give(value->second.first, buffer, length);
            attributes = value->second.second;
        }
        return {};
    }
    Common::Error Set(const std::wstring& name, const Uefi::Guid&, std::span<const std::uint8_t> data,
                      std::uint32_t attributes, std::uint32_t& status) override {
        calls.push_back("set " + std::to_string(data.size()));
        status = setStatus;
        if (status == 0 && data.empty()) firmware.erase(name);
        else if (status == 0) firmware[name] = {{data.begin(), data.end()}, attributes};
        return {};
    }
    std::uint32_t Enumerate(std::span<std::uint8_t> buffer, std::uint32_t& length) override {
        calls.push_back("enumerate " + std::to_string(length));
        return enumerateStatus != 0 ? enumerateStatus : Give(bootEntryList, buffer, length);
    }

private:
    Common::Error Record(const char* call, const Common::Error& error) {
        calls.push_back(call);
        return error;
    }
    // STATUS_BUFFER_TOO_SMALL with the size needed, or the bytes.
    static std::uint32_t Give(const Bytes& value, std::span<std::uint8_t> buffer, std::uint32_t& length) {
        bool fits = length >= value.size();
        length = static_cast<std::uint32_t>(value.size());
        if (!fits) return Uefi::NtStatus::kBufferTooSmall;
        std::copy(value.begin(), value.end(), buffer.begin());
        return 0;
    }
};

}  // namespace UefiTest
