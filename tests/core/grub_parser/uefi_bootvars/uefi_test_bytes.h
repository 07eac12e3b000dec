// Byte vectors in the layouts of the UEFI standard (EFI_LOAD_OPTION, device-path nodes), and the
// fixture machine that the report tests share with the text expected for it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace UefiTest {

using Bytes = std::vector<std::uint8_t>;

inline void PutU16(Bytes& out, std::uint16_t value) {
    out.push_back(static_cast<std::uint8_t>(value));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}
inline void PutU32(Bytes& out, std::uint32_t value) {
    PutU16(out, static_cast<std::uint16_t>(value));
    PutU16(out, static_cast<std::uint16_t>(value >> 16));
}
inline Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}
// UTF-16LE, with a terminating zero unit unless told otherwise.
inline Bytes Utf16(std::u16string_view text, bool terminated = true) {
    Bytes out;
    for (char16_t unit : text) PutU16(out, unit);
    if (terminated) PutU16(out, 0);
    return out;
}
// EFI_DEVICE_PATH_PROTOCOL header (length 4 + body unless declared otherwise) and body.
inline Bytes Node(std::uint8_t type, std::uint8_t subType, const Bytes& body, int declaredLength = -1) {
    Bytes out{type, subType};
    PutU16(out, static_cast<std::uint16_t>(declaredLength >= 0 ? declaredLength : 4 + static_cast<int>(body.size())));
    return Concat({out, body});
}
// HARDDRIVE_DEVICE_PATH (4, 1): always 42 bytes, whatever length its header declares.
inline Bytes HardDriveNode(std::uint32_t number, std::uint64_t start, std::uint64_t size,
                           const std::array<std::uint8_t, 16>& signature, std::uint8_t signatureType,
                           std::uint16_t declaredLength = 42) {
    Bytes body;
    PutU32(body, number);
    for (std::uint64_t value : {start, size}) {
        PutU32(body, static_cast<std::uint32_t>(value));
        PutU32(body, static_cast<std::uint32_t>(value >> 32));
    }
    body.insert(body.end(), signature.begin(), signature.end());
    body.push_back(signatureType);  // PartitionFormat: 1 PC-AT MBR, 2 GPT; here always matching
    body.push_back(signatureType);  // SignatureType: 1 MBR signature, 2 GUID
    return Node(4, 1, body, declaredLength);
}
inline Bytes FilePathNode(std::u16string_view path) { return Node(4, 4, Utf16(path)); }
inline Bytes EndNode(std::uint8_t subType = 0xFF) { return Node(0x7F, subType, {}); }
// EFI_LOAD_OPTION; FilePathListLength is the size of `pathList` unless given.
inline Bytes LoadOption(std::uint32_t attributes, std::u16string_view description, const Bytes& pathList,
                        const Bytes& optionalData = {}, int pathListLength = -1) {
    Bytes out;
    PutU32(out, attributes);
    PutU16(out, static_cast<std::uint16_t>(pathListLength >= 0 ? pathListLength : static_cast<int>(pathList.size())));
    return Concat({out, Utf16(description), pathList, optionalData});
}
// 5A2B0C3D-0001-0002-A0B1-C2D3E4F50617 in its on-disk byte order.
inline std::array<std::uint8_t, 16> GptSignature() {
    return {0x3D, 0x0C, 0x2B, 0x5A, 0x01, 0x00, 0x02, 0x00, 0xA0, 0xB1, 0xC2, 0xD3, 0xE4, 0xF5, 0x06, 0x17};
}

inline std::string HexDump(const Bytes& bytes) {
    std::string out;
    for (std::uint8_t byte : bytes) out += "0123456789ABCDEF"[byte >> 4] + std::string(1, "0123456789ABCDEF"[byte & 15]) + " ";
    return out;
}

inline const std::string kSeparator = "\r\n\r\n***\r\n\r\n";

// Boot0000: GPT disk and file path; Boot0001: undecodable (no zero after its description); Boot0002:
// network boot, no hard-drive or file node; Boot000A: MBR disk, partition number 0x10002; BootOrder names
// 000A, 0000, 0002, 0007 (no such entry) and 0001, then holds an odd byte that names nothing.
inline std::map<std::wstring, Bytes> FixtureVariables() {
    Bytes undecodable{1, 0, 0, 0, 4, 0};
    Bytes order;
    for (std::uint16_t number : {0x000A, 0x0000, 0x0002, 0x0007, 0x0001}) PutU16(order, number);
    order.push_back(0x05);
    return {
        {L"Boot0000", LoadOption(1, u"Windows Boot Manager",
                                 Concat({HardDriveNode(1, 2048, 204800, GptSignature(), 2),
                                         FilePathNode(u"\\EFI\\Microsoft\\Boot\\bootmgfw.efi"), EndNode()}),
                                 Utf16(u"WINDOWS", false))},
        {L"Boot0001", Concat({undecodable, Utf16(u"Broken", false)})},
        // PCI (1, 1), MAC address (3, 11), IPv4 (3, 12): a PXE boot option.
        {L"Boot0002", LoadOption(1, u"UEFI PXEv4 (MAC:525400000012)",
                                 Concat({Node(1, 1, {0, 3}), Node(3, 11, Bytes(33, 0x52)), Node(3, 12, Bytes(23, 0)), EndNode()}))},
        {L"Boot000A", LoadOption(1, u"debian",
                                 Concat({HardDriveNode(0x10002, 63, 1048576, {0x78, 0x56, 0x34, 0x12}, 1),
                                         FilePathNode(u"\\EFI\\debian\\shimx64.efi"), EndNode()}))},
        {L"BootOrder", order},
    };
}

inline std::string FixtureReportText() {
    std::map<std::wstring, Bytes> v = FixtureVariables();
    return "Boot variables are allowed on this system" + kSeparator + "Boot variables information:" + kSeparator +
           "---- 0 ----\r\nDescription: Windows Boot Manager\r\nPath: \\EFI\\Microsoft\\Boot\\bootmgfw.efi\r\n"
           "GUID: 5A2B0C3D-0001-0002-A0B1-C2D3E4F50617\r\nPartition number: 1\r\nBegin: 2048\r\n"
           "Partition Size: 204800\r\nHex dump\r\n" + HexDump(v[L"Boot0000"]) + "\r\n" + kSeparator +
           "Unable to obtain string representation for entry #1" + kSeparator +
           "---- 2 ----\r\nDescription: UEFI PXEv4 (MAC:525400000012)\r\nPath: Unknown\r\nGUID: Unknown\r\n"
           "Partition number: Unknown\r\nBegin: Unknown\r\nPartition Size: Unknown\r\nHex dump\r\n" +
           HexDump(v[L"Boot0002"]) + "\r\n" + kSeparator +
           "---- 10 ----\r\nDescription: debian\r\nPath: \\EFI\\debian\\shimx64.efi\r\nGUID: Unknown\r\n"
           "Partition number: 2\r\nBegin: 63\r\nPartition Size: 1048576\r\nHex dump\r\n" + HexDump(v[L"Boot000A"]) +
           "\r\nBoot variables in Boot Order:" + kSeparator + "10 0 2 7 1" + kSeparator;
}

}  // namespace UefiTest
