// Byte vectors in the layouts of the UEFI specification (EFI_LOAD_OPTION, device-path nodes), the boot
// entries of the fixture machine shared by the report tests, and the report text expected for it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace UefiTest {

using Bytes = std::vector<std::uint8_t>;

void PutU16(Bytes& out, std::uint16_t value);
void PutU32(Bytes& out, std::uint32_t value);
void PutU64(Bytes& out, std::uint64_t value);
Bytes Concat(std::initializer_list<Bytes> parts);

// UTF-16LE units of `text`, with a terminating zero unit when `terminated`.
Bytes Utf16(std::u16string_view text, bool terminated = true);

// Any node: header (type, subtype, length = 4 + body unless given) and body.
Bytes Node(std::uint8_t type, std::uint8_t subType, const Bytes& body, int declaredLength = -1);
// HARDDRIVE_DEVICE_PATH (4, 1), 42 bytes unless `declaredLength` says otherwise (the bytes stay 42).
Bytes HardDriveNode(std::uint32_t number, std::uint64_t start, std::uint64_t size,
                    const std::array<std::uint8_t, 16>& signature, std::uint8_t format, std::uint8_t signatureType,
                    std::uint16_t declaredLength = 42);
// FILEPATH_DEVICE_PATH (4, 4) with a null-terminated path.
Bytes FilePathNode(std::u16string_view path);
// End of the whole path (0x7F, 0xFF) or of one instance (0x7F, 0x01).
Bytes EndNode(std::uint8_t subType = 0xFF);

// EFI_LOAD_OPTION; FilePathListLength is the size of `pathList` unless given.
Bytes LoadOption(std::uint32_t attributes, std::u16string_view description, const Bytes& pathList,
                 const Bytes& optionalData = {}, int pathListLength = -1);

// The GUID 5A2B0C3D-0001-0002-A0B1-C2D3E4F50617 in its on-disk byte order.
std::array<std::uint8_t, 16> SampleGptSignature();

// "01 00 00 00 ": the report's dump of raw bytes.
std::string HexDump(const Bytes& bytes);

// The fixture machine: Boot0000 (GPT disk, file path), Boot0001 (undecodable: no zero after its
// description), Boot0002 (network boot, no hard-drive or file node), Boot000A (MBR disk), and a BootOrder
// naming 000A, 0000, 0002, 0007 (no such entry) and 0001.
std::map<std::wstring, Bytes> FixtureVariables();
// What "uefi_vars.txt" holds for the fixture machine.
std::string FixtureReportText();

// The complete text on a system without UEFI variables.
std::string NoUefiReportText(bool allowed);

}  // namespace UefiTest
