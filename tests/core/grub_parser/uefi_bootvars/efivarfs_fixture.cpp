// A folder laid out as efivarfs, for the Linux backend's tests.
#include "tests/core/grub_parser/uefi_bootvars/efivarfs_fixture.h"

#include <fstream>

#include "core/common/strings.h"

namespace UefiTest {

namespace {

void WriteRaw(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

void WriteEfivarfsVariable(const std::filesystem::path& root, const std::string& name, const Bytes& data,
                           std::uint32_t attributes) {
    Bytes file;
    PutU32(file, attributes);
    file.insert(file.end(), data.begin(), data.end());
    WriteRaw(root / (name + kGlobalGuidSuffix), file);
}

void WriteFixtureMachine(const std::filesystem::path& root) {
    for (const auto& [name, data] : FixtureVariables()) WriteEfivarfsVariable(root, Common::WideToUtf8(name), data);
    WriteEfivarfsVariable(root, "BootNext", {0x02, 0x00});
    WriteEfivarfsVariable(root, "Boot000b", LoadOption(1, u"lower-case digits", EndNode()));
    WriteEfivarfsVariable(root, "Boot00G1", LoadOption(1, u"not hexadecimal", EndNode()));
    WriteRaw(root / "Boot0005-e04e8b9a-1f1b-4e2c-9c3a-6d5b5f0d3a11", Concat({{7, 0, 0, 0}, LoadOption(1, u"vendor", EndNode())}));
}

}  // namespace UefiTest
