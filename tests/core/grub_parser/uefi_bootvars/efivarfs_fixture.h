// A folder laid out as efivarfs (one "<name>-<guid>" file per variable: 4 attribute bytes, then the
// value), for the Linux backend's tests.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "tests/core/grub_parser/uefi_bootvars/uefi_test_bytes.h"

namespace UefiTest {

inline constexpr const char* kGlobalGuidSuffix = "-8be4df61-93ca-11d2-aa0d-00e098032b8c";

// Writes one variable file of the global-variable GUID with attributes 7 (or the given ones).
void WriteEfivarfsVariable(const std::filesystem::path& root, const std::string& name, const Bytes& data,
                           std::uint32_t attributes = 7);

// The fixture machine's variables, plus files the listing must pass over: a BootNext, a Boot#### of
// another vendor GUID, lower-case digits, and a name that is not hexadecimal.
void WriteFixtureMachine(const std::filesystem::path& root);

}  // namespace UefiTest
