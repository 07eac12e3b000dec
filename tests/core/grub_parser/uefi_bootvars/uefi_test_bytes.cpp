// Byte vectors in the layouts of the UEFI specification, and the fixture machine of the report tests.
#include "tests/core/grub_parser/uefi_bootvars/uefi_test_bytes.h"

namespace UefiTest {

void PutU16(Bytes& out, std::uint16_t value) {
    out.push_back(static_cast<std::uint8_t>(value));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}

void PutU32(Bytes& out, std::uint32_t value) {
    PutU16(out, static_cast<std::uint16_t>(value));
    PutU16(out, static_cast<std::uint16_t>(value >> 16));
}

void PutU64(Bytes& out, std::uint64_t value) {
    PutU32(out, static_cast<std::uint32_t>(value));
    PutU32(out, static_cast<std::uint32_t>(value >> 32));
}

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

Bytes Utf16(std::u16string_view text, bool terminated) {
    Bytes out;
    for (char16_t unit : text) PutU16(out, unit);
    if (terminated) PutU16(out, 0);
    return out;
}

Bytes Node(std::uint8_t type, std::uint8_t subType, const Bytes& body, int declaredLength) {
    Bytes out{type, subType};
    PutU16(out, static_cast<std::uint16_t>(declaredLength >= 0 ? declaredLength : 4 + static_cast<int>(body.size())));
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

Bytes HardDriveNode(std::uint32_t number, std::uint64_t start, std::uint64_t size,
                    const std::array<std::uint8_t, 16>& signature, std::uint8_t format, std::uint8_t signatureType,
                    std::uint16_t declaredLength) {
    Bytes body;
    PutU32(body, number);
    PutU64(body, start);
    PutU64(body, size);
    body.insert(body.end(), signature.begin(), signature.end());
    body.push_back(format);
    body.push_back(signatureType);
    return Node(4, 1, body, declaredLength);
}

Bytes FilePathNode(std::u16string_view path) { return Node(4, 4, Utf16(path)); }

Bytes EndNode(std::uint8_t subType) { return Node(0x7F, subType, {}); }

Bytes LoadOption(std::uint32_t attributes, std::u16string_view description, const Bytes& pathList,
                 const Bytes& optionalData, int pathListLength) {
    Bytes out;
    PutU32(out, attributes);
    PutU16(out, static_cast<std::uint16_t>(pathListLength >= 0 ? pathListLength : static_cast<int>(pathList.size())));
    return Concat({out, Utf16(description), pathList, optionalData});
}

std::array<std::uint8_t, 16> SampleGptSignature() {
    return {0x3D, 0x0C, 0x2B, 0x5A, 0x01, 0x00, 0x02, 0x00, 0xA0, 0xB1, 0xC2, 0xD3, 0xE4, 0xF5, 0x06, 0x17};
}

std::string HexDump(const Bytes& bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    for (std::uint8_t byte : bytes) {
        out += kDigits[byte >> 4];
        out += kDigits[byte & 0xF];
        out += ' ';
    }
    return out;
}

namespace {

constexpr std::uint32_t kActive = 1;

Bytes GptEntry() {
    return LoadOption(kActive, u"Windows Boot Manager",
                      Concat({HardDriveNode(1, 2048, 204800, SampleGptSignature(), 2, 2),
                              FilePathNode(u"\\EFI\\Microsoft\\Boot\\bootmgfw.efi"), EndNode()}),
                      Utf16(u"WINDOWS", false));
}

Bytes UndecodableEntry() {
    // Attributes, FilePathListLength and a description that runs to the end without its zero.
    Bytes out;
    PutU32(out, kActive);
    PutU16(out, 4);
    return Concat({out, Utf16(u"Broken", false)});
}

Bytes NetworkEntry() {
    // PCI (1, 1), MAC address (3, 11), IPv4 (3, 12): a PXE boot option as firmware writes it.
    Bytes pci{0x00, 0x03};
    Bytes mac(33, 0);
    mac[0] = 0x52;
    mac[1] = 0x54;
    mac[5] = 0x12;
    mac[32] = 1;
    Bytes ipv4(23, 0);
    return LoadOption(kActive, u"UEFI PXEv4 (MAC:525400000012)",
                      Concat({Node(1, 1, pci), Node(3, 11, mac), Node(3, 12, ipv4), EndNode()}));
}

Bytes MbrEntry() {
    std::array<std::uint8_t, 16> signature{0x78, 0x56, 0x34, 0x12};
    return LoadOption(kActive, u"debian",
                      Concat({HardDriveNode(0x10002, 63, 1048576, signature, 1, 1),
                              FilePathNode(u"\\EFI\\debian\\shimx64.efi"), EndNode()}));
}

Bytes FixtureBootOrder() {
    Bytes order;
    for (std::uint16_t number : {0x000A, 0x0000, 0x0002, 0x0007, 0x0001}) PutU16(order, number);
    return order;
}

}  // namespace

std::map<std::wstring, Bytes> FixtureVariables() {
    return {{L"Boot0000", GptEntry()},
            {L"Boot0001", UndecodableEntry()},
            {L"Boot0002", NetworkEntry()},
            {L"Boot000A", MbrEntry()},
            {L"BootOrder", FixtureBootOrder()}};
}

std::string FixtureReportText() {
    const std::string separator = "\r\n\r\n***\r\n\r\n";
    return "Boot variables are allowed on this system" + separator +
           "Boot variables information:" + separator +
           "---- 0 ----\r\n"
           "Description: Windows Boot Manager\r\n"
           "Path: \\EFI\\Microsoft\\Boot\\bootmgfw.efi\r\n"
           "GUID: 5A2B0C3D-0001-0002-A0B1-C2D3E4F50617\r\n"
           "Partition number: 1\r\n"
           "Begin: 2048\r\n"
           "Partition Size: 204800\r\n"
           "Hex dump\r\n" + HexDump(GptEntry()) + "\r\n" + separator +
           "Unable to obtain string representation for entry #1" + separator +
           "---- 2 ----\r\n"
           "Description: UEFI PXEv4 (MAC:525400000012)\r\n"
           "Path: Unknown\r\n"
           "GUID: Unknown\r\n"
           "Partition number: Unknown\r\n"
           "Begin: Unknown\r\n"
           "Partition Size: Unknown\r\n"
           "Hex dump\r\n" + HexDump(NetworkEntry()) + "\r\n" + separator +
           "---- 10 ----\r\n"
           "Description: debian\r\n"
           "Path: \\EFI\\debian\\shimx64.efi\r\n"
           "GUID: Unknown\r\n"
           "Partition number: 2\r\n"
           "Begin: 63\r\n"
           "Partition Size: 1048576\r\n"
           "Hex dump\r\n" + HexDump(MbrEntry()) + "\r\n" +
           "Boot variables in Boot Order:" + separator + "10 0 2 7 1" + separator;
}

std::string NoUefiReportText(bool allowed) {
    return std::string(allowed ? "Boot variables are allowed on this system"
                               : "Boot variables are not allowed on this system") +
           "\r\n\r\n***\r\n\r\n"
           "Could not obtain Boot Entries Enumerator, UEFI is not enabled"
           "Could not obtain Boot Order, UEFI is not enabled";
}

}  // namespace UefiTest
