// A folder laid out as efivarfs: one "<name>-<guid>" file per variable, its 4 attribute bytes, then the value.
#pragma once

#include <filesystem>
#include <fstream>

#include "core/common/strings.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_test_bytes.h"

namespace UefiTest {

inline const std::string kGlobalGuidSuffix = "-8be4df61-93ca-11d2-aa0d-00e098032b8c";

inline void WriteEfivarfsFile(const std::filesystem::path& path, const Bytes& data, std::uint32_t attributes = 7) {
    Bytes file;
    PutU32(file, attributes);
    file.insert(file.end(), data.begin(), data.end());
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
}

// The fixture machine's variables, and files the listing passes over: BootNext, lower-case digits or
// prefix, a name that is not hexadecimal, three or five digits, a Boot#### of another vendor GUID.
inline void WriteFixtureMachine(const std::filesystem::path& root) {
    for (const auto& [name, data] : FixtureVariables()) WriteEfivarfsFile(root / (Common::WideToUtf8(name) + kGlobalGuidSuffix), data);
    for (const char* other : {"BootNext", "Boot000b", "boot0003", "Boot00G1", "Boot003", "Boot00003"}) {
        WriteEfivarfsFile(root / (other + kGlobalGuidSuffix), {2, 0});
    }
    WriteEfivarfsFile(root / "Boot0005-e04e8b9a-1f1b-4e2c-9c3a-6d5b5f0d3a11", LoadOption(1, u"vendor", EndNode()));
}

}  // namespace UefiTest
