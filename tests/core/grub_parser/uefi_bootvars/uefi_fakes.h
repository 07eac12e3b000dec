// In-memory stand-ins for the firmware: a variable store, and the three native routines as the Windows
// backend sees them.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/grub_parser/uefi_bootvars/nt_variable.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"
#include "core/grub_parser/uefi_bootvars/variable.h"

namespace UefiTest {

// Variables of the global-variable GUID by name; boot entry ids are the Boot#### names unless given.
class FakeVariableStore final : public Uefi::VariableStore {
public:
    struct Value {
        std::vector<std::uint8_t> data;
        std::uint32_t attributes = Uefi::kBootVariableAttributes;
    };
    std::map<std::wstring, Value> values;
    std::map<std::wstring, Common::Error> readErrors;
    Common::Error enumerateError;
    std::optional<std::vector<std::uint16_t>> ids;
    bool allowed = true;
    int reads = 0;

    template <typename Variables>
    explicit FakeVariableStore(const Variables& variables) {
        for (const auto& [name, data] : variables) values[name].data = data;
    }
    FakeVariableStore() = default;

    bool BootVariablesAllowed() override { return allowed; }
    Uefi::VariablePtr CreateVariable(const Uefi::Guid& vendor, std::wstring name, std::uint32_t attributes) override {
        return std::make_shared<Variable>(*this, vendor, std::move(name), attributes);
    }
    Common::Error EnumerateBootEntryIds(std::vector<std::uint16_t>& out) override {
        if (enumerateError.Failed()) return enumerateError;
        if (ids) {
            out = *ids;
            return {};
        }
        out.clear();
        for (const auto& entry : values) {
            if (auto number = Uefi::ParseBootEntryVariableName(entry.first)) out.push_back(*number);
        }
        return {};
    }

private:
    class Variable final : public Uefi::Variable {
    public:
        Variable(FakeVariableStore& store, const Uefi::Guid& vendor, std::wstring name, std::uint32_t attributes)
            : Uefi::Variable(vendor, std::move(name), attributes), store_(store) {}

    protected:
        Common::Error ReadValue(std::vector<std::uint8_t>& data, std::uint32_t& attributes) override {
            ++store_.reads;
            if (auto error = store_.readErrors.find(Name()); error != store_.readErrors.end()) return error->second;
            auto value = store_.values.find(Name());
            if (value == store_.values.end()) return Uefi::MakeNotFoundError(Name());
            data = value->second.data;
            attributes = value->second.attributes;
            return {};
        }
        Common::Error WriteValue(std::span<const std::uint8_t> data, std::uint32_t attributes) override {
            if (data.empty()) store_.values.erase(Name());
            else store_.values[Name()] = {{data.begin(), data.end()}, attributes};
            return {};
        }

    private:
        FakeVariableStore& store_;
    };
};

// Firmware behind the native routines' calling conventions; `calls` records what was asked, in order.
class FakeNativeRoutines final : public Uefi::NativeRoutines {
public:
    struct Value {
        std::vector<std::uint8_t> data;
        std::uint32_t attributes = Uefi::kBootVariableAttributes;
    };
    std::map<std::wstring, Value> firmware;
    std::optional<std::uint32_t> queryStatus;  // answered instead of looking into `firmware`
    std::uint32_t setStatus = 0;
    std::vector<std::uint8_t> bootEntryList;
    std::uint32_t enumerateStatus = 0;
    Common::Error findQueryError, findSetError, findEnumerateError, privilegeError;
    std::vector<std::string> calls;

    Common::Error FindQueryRoutine() override { return Record("find query", findQueryError); }
    Common::Error FindSetRoutine() override { return Record("find set", findSetError); }
    Common::Error FindEnumerateRoutine() override { return Record("find enumerate", findEnumerateError); }
    Common::Error ObtainPrivilege() override { return Record("privilege", privilegeError); }

    Common::Error Query(const std::wstring& name, const Uefi::Guid&, std::span<std::uint8_t> buffer,
                        std::uint32_t& length, std::uint32_t& attributes, std::uint32_t& status) override {
        calls.push_back("query " + std::to_string(length));
        if (queryStatus) {
            status = *queryStatus;
            return {};
        }
        auto value = firmware.find(name);
        if (value == firmware.end()) {
            status = Uefi::NtStatus::kVariableNotFound;
            return {};
        }
        const std::vector<std::uint8_t>& data = value->second.data;
        if (length < data.size()) {
            length = static_cast<std::uint32_t>(data.size());
            status = Uefi::NtStatus::kBufferTooSmall;
            return {};
        }
        std::copy(data.begin(), data.end(), buffer.begin());
        length = static_cast<std::uint32_t>(data.size());
        attributes = value->second.attributes;
        status = 0;
        return {};
    }

    Common::Error Set(const std::wstring& name, const Uefi::Guid&, std::span<const std::uint8_t> data,
                      std::uint32_t attributes, std::uint32_t& status) override {
        calls.push_back("set " + std::to_string(data.size()));
        status = setStatus;
        if (status != 0) return {};
        if (data.empty()) firmware.erase(name);
        else firmware[name] = {{data.begin(), data.end()}, attributes};
        return {};
    }

    std::uint32_t Enumerate(std::span<std::uint8_t> buffer, std::uint32_t& length) override {
        calls.push_back("enumerate " + std::to_string(length));
        if (enumerateStatus != 0) return enumerateStatus;
        bool fits = length >= bootEntryList.size();
        length = static_cast<std::uint32_t>(bootEntryList.size());
        if (!fits) return Uefi::NtStatus::kBufferTooSmall;
        std::copy(bootEntryList.begin(), bootEntryList.end(), buffer.begin());
        return 0;
    }

private:
    Common::Error Record(const char* call, const Common::Error& error) {
        calls.push_back(call);
        return error;
    }
};

}  // namespace UefiTest
