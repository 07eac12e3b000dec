// Load-option and device-path decoding over byte vectors laid out as the UEFI specification defines them.
#include <gtest/gtest.h>

#include "core/grub_parser/uefi_bootvars/device_path_factory.h"
#include "core/grub_parser/uefi_bootvars/load_options_impl.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_test_bytes.h"

namespace {

using namespace UefiTest;
using Uefi::LoadOptionsImpl;

struct Decoded {
    LoadOptionsImpl options;
    Common::Error error;
    std::ptrdiff_t left = 0;
};

Decoded Fill(const Bytes& bytes) {
    Decoded decoded;
    Uefi::ByteReader reader(bytes);
    decoded.error = decoded.options.Fill(reader);
    decoded.left = reader.Left();
    return decoded;
}

// Every partition query, and the code it answered.
std::vector<std::uint32_t> PartitionQueryCodes(const LoadOptionsImpl& options) {
    std::uint32_t number = 0, type = 0, signature = 0;
    std::uint64_t start = 0, size = 0;
    Uefi::Guid guid;
    return {options.GetPartitionNumber(number).Code(), options.GetPartitionStart(start).Code(),
            options.GetPartitionSize(size).Code(), options.GetDiskType(type).Code(),
            options.GetPartitionGUID(guid).Code(), options.GetNtSignature(signature).Code()};
}

TEST(LoadOptions, GptHardDriveFilePathAndEndNodes) {
    Bytes optional = Utf16(u"WINDOWS", false);
    Decoded d = Fill(LoadOption(1, u"Windows Boot Manager",
                                Concat({HardDriveNode(1, 2048, 204800, SampleGptSignature(), 2, 2),
                                        FilePathNode(u"\\EFI\\Microsoft\\Boot\\bootmgfw.efi"), EndNode()}),
                                optional));
    ASSERT_TRUE(d.error.Succeeded()) << d.error.ToString();
    EXPECT_EQ(d.options.Attributes(), 1u);
    EXPECT_EQ(d.options.PathListLength(), 42 + 70 + 4);
    ASSERT_EQ(d.options.Nodes().size(), 3u);
    EXPECT_EQ(d.options.Nodes()[2]->GetHeader().type, 0x7F);
    // The optional data is not decoded: the cursor stops right after the path list.
    EXPECT_EQ(d.left, static_cast<std::ptrdiff_t>(optional.size()));

    std::wstring description, path;
    std::uint32_t number = 0, type = 0;
    std::uint64_t start = 0, size = 0;
    Uefi::Guid guid;
    EXPECT_TRUE(d.options.GetDescription(description).Succeeded());
    EXPECT_EQ(description, L"Windows Boot Manager");
    EXPECT_TRUE(d.options.GetPath(path).Succeeded());
    EXPECT_EQ(path, L"\\EFI\\Microsoft\\Boot\\bootmgfw.efi");
    EXPECT_TRUE(d.options.GetPartitionNumber(number).Succeeded());
    EXPECT_EQ(number, 1u);
    EXPECT_TRUE(d.options.GetPartitionStart(start).Succeeded());
    EXPECT_EQ(start, 2048u);
    EXPECT_TRUE(d.options.GetPartitionSize(size).Succeeded());
    EXPECT_EQ(size, 204800u);
    EXPECT_TRUE(d.options.GetDiskType(type).Succeeded());
    EXPECT_EQ(type, Uefi::DiskType::kGpt);
    ASSERT_TRUE(d.options.GetPartitionGUID(guid).Succeeded());
    EXPECT_EQ(guid, (Uefi::Guid{0x5A2B0C3D, 0x0001, 0x0002, {0xA0, 0xB1, 0xC2, 0xD3, 0xE4, 0xF5, 0x06, 0x17}}));

    std::uint32_t signature = 0;
    Common::Error mbrOnly = d.options.GetNtSignature(signature);
    EXPECT_EQ(mbrOnly.Code(), Uefi::Codes::kIncorrectSignature);
    EXPECT_EQ(mbrOnly.Message(), L"Incorrect boot signature.");
}

TEST(LoadOptions, DiskSchemeFollowsTheSignatureType) {
    std::array<std::uint8_t, 16> mbrSignature{0x78, 0x56, 0x34, 0x12, 0xEE};
    Decoded mbr = Fill(LoadOption(1, u"debian", Concat({HardDriveNode(2, 63, 1000, mbrSignature, 1, 1), EndNode()})));
    ASSERT_TRUE(mbr.error.Succeeded());
    std::uint32_t type = 0, signature = 0;
    Uefi::Guid guid;
    EXPECT_TRUE(mbr.options.GetDiskType(type).Succeeded());
    EXPECT_EQ(type, Uefi::DiskType::kMbr);
    EXPECT_TRUE(mbr.options.GetNtSignature(signature).Succeeded());
    EXPECT_EQ(signature, 0x12345678u);
    Common::Error gptOnly = mbr.options.GetPartitionGUID(guid);
    EXPECT_EQ(gptOnly.Code(), Uefi::Codes::kIncorrectSignature);
    EXPECT_EQ(gptOnly.Message(), L"Incorrect boot signature.");

    Decoded none = Fill(LoadOption(1, u"x", Concat({HardDriveNode(1, 0, 0, {}, 0, 0), EndNode()})));
    ASSERT_TRUE(none.error.Succeeded());
    EXPECT_TRUE(none.options.GetDiskType(type).Succeeded());
    EXPECT_EQ(type, Uefi::DiskType::kUnknown);
    EXPECT_EQ(none.options.GetPartitionGUID(guid).Code(), Uefi::Codes::kIncorrectSignature);
    EXPECT_EQ(none.options.GetNtSignature(signature).Code(), Uefi::Codes::kIncorrectSignature);
}

TEST(LoadOptions, PathsWithoutHardDriveNodeAnswerIncorrectBootPath) {
    const std::vector<std::uint32_t> allIncorrect(6, Uefi::Codes::kIncorrectBootPath);
    // PXE over IPv4: PCI (1, 1), MAC (3, 11), IPv4 (3, 12).
    Decoded network = Fill(LoadOption(
        1, u"UEFI PXEv4", Concat({Node(1, 1, {0, 3}), Node(3, 11, Bytes(33, 0)), Node(3, 12, Bytes(23, 0)), EndNode()})));
    ASSERT_TRUE(network.error.Succeeded());
    EXPECT_EQ(network.options.Nodes().size(), 4u);
    EXPECT_EQ(PartitionQueryCodes(network.options), allIncorrect);
    std::wstring path;
    Common::Error noPath = network.options.GetPath(path);
    EXPECT_EQ(noPath.Code(), Uefi::Codes::kIncorrectBootPath);
    EXPECT_EQ(noPath.Message(), L"Incorrect boot path.");

    // A firmware application: firmware volume (4, 7) and firmware file (4, 6), neither a hard drive.
    Decoded application = Fill(LoadOption(9, u"UiApp", Concat({Node(4, 7, Bytes(16, 0xA1)), Node(4, 6, Bytes(16, 0xB2)), EndNode()})));
    ASSERT_TRUE(application.error.Succeeded());
    EXPECT_EQ(PartitionQueryCodes(application.options), allIncorrect);
    EXPECT_EQ(application.options.GetPath(path).Code(), Uefi::Codes::kIncorrectBootPath);

    Decoded empty = Fill(LoadOption(1, u"Empty", {}));
    ASSERT_TRUE(empty.error.Succeeded());
    EXPECT_TRUE(empty.options.Nodes().empty());
    EXPECT_EQ(PartitionQueryCodes(empty.options), allIncorrect);
}

TEST(LoadOptions, TruncatedOrMalformedInputFailsWithTheDecodingCode) {
    Bytes header;
    PutU32(header, 1);
    PutU16(header, 4);
    struct Case {
        const char* what;
        Bytes bytes;
    } cases[] = {
        {"empty", {}},
        {"attributes only", {1, 0, 0, 0}},
        {"no path-list length", {1, 0, 0, 0, 4}},
        {"description without its zero", Concat({header, Utf16(u"Broken", false), EndNode()})},
        {"odd byte after the description", Concat({header, {0x41}})},
        {"node longer than what is left", LoadOption(1, u"d", Concat({Node(1, 1, {0, 3}, 40)}))},
        {"node header cut short", LoadOption(1, u"d", {0x7F, 0xFF}, {}, 4)},
        {"hard-drive node declared short", LoadOption(1, u"d", Node(4, 1, Bytes(30, 0)))},
        {"hard-drive node cut by the variable's end", LoadOption(1, u"d", Node(4, 1, Bytes(20, 0), 42), {}, 42)},
        {"file-path node under 6 bytes", LoadOption(1, u"d", Node(4, 4, {0x41}))},
        {"end node under 4 bytes", LoadOption(1, u"d", Node(0x7F, 0xFF, {}, 2), {}, 4)},
        {"common node under 4 bytes", LoadOption(1, u"d", Concat({Node(1, 1, {}, 3), Bytes(4, 0)}), {}, 8)},
        {"path list longer than the variable", LoadOption(1, u"d", EndNode(), {}, 12)},
    };
    for (const Case& c : cases) {
        Decoded d = Fill(c.bytes);
        EXPECT_EQ(d.error.Code(), Uefi::Codes::kMalformed) << c.what;
        EXPECT_EQ(d.error.Message(), L"") << c.what;
    }
}

TEST(LoadOptions, NodeLongerThanThePathListOverrunsTheCounter) {
    // The list claims 10 bytes but its first node declares 30: the counter goes negative.
    Decoded d = Fill(LoadOption(1, u"d", Concat({FilePathNode(u"\\a\\b\\c\\d.efi"), EndNode()}), {}, 10));
    EXPECT_EQ(d.error.Code(), Uefi::Codes::kIncorrectBootPath);
    EXPECT_EQ(d.error.Message(), L"Incorrect boot path.");
}

TEST(LoadOptions, HardDriveNodeConsumesFortyTwoBytesWhateverItDeclares) {
    const std::array<std::uint8_t, 16> signature = SampleGptSignature();
    // Declared 46: the 4 bytes after the 42 are read as the next node. Here they form an end-of-instance
    // node, which brings the counter (50 - 46 - 4) to 0 before the real end node is reached.
    Bytes node = Concat({HardDriveNode(1, 2048, 4096, signature, 2, 2, 46), EndNode(0x01)});
    Decoded asEnd = Fill(LoadOption(1, u"d", Concat({node, EndNode()})));
    ASSERT_TRUE(asEnd.error.Succeeded()) << asEnd.error.ToString();
    ASSERT_EQ(asEnd.options.Nodes().size(), 2u);
    EXPECT_EQ(asEnd.options.Nodes()[0]->GetLength(), 46);
    EXPECT_EQ(asEnd.options.Nodes()[1]->GetHeader().subType, 0x01);
    EXPECT_EQ(asEnd.left, 4) << "the real end node stays unread";

    // Zero padding instead is a node of length 0, which no class takes: the option cannot be decoded.
    Decoded padded = Fill(LoadOption(1, u"d", Concat({HardDriveNode(1, 2048, 4096, signature, 2, 2, 46), Bytes(4, 0), EndNode()})));
    EXPECT_EQ(padded.error.Code(), Uefi::Codes::kMalformed);
}

TEST(LoadOptions, EndNodeConsumesOnlyItsHeaderButCountsItsDeclaredLength) {
    // An end node declaring 8 bytes: the counter drops by 8 while the cursor moves by 4.
    Decoded d = Fill(LoadOption(1, u"d", Node(0x7F, 0xFF, {}, 8), Bytes(4, 0xCC), 8));
    ASSERT_TRUE(d.error.Succeeded());
    EXPECT_EQ(d.options.Nodes().size(), 1u);
    EXPECT_EQ(d.left, 4);
}

TEST(LoadOptions, UnreadableNodeAfterAnEndNodeIsKeptAsTrailingBytes) {
    // After an end-of-instance node comes a node declaring 2 bytes (too short for any class); the
    // counter's 6 bytes, read from where the cursor stopped (past the bad header), become trailing bytes.
    Bytes bad{0x01, 0x01, 0x02, 0x00, 0xAA, 0xBB};
    Bytes optional{0xCC, 0xDD, 0xEE, 0xFF};
    Decoded d = Fill(LoadOption(1, u"d", Concat({FilePathNode(u"\\x.efi"), EndNode(0x01), bad}), optional));
    ASSERT_TRUE(d.error.Succeeded()) << d.error.ToString();
    EXPECT_EQ(d.options.Nodes().size(), 2u);
    EXPECT_EQ(d.options.TrailingBytes(), (Bytes{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}));

    // Without the end node before it, the same node fails the option.
    Decoded noEnd = Fill(LoadOption(1, u"d", Concat({FilePathNode(u"\\x.efi"), bad}), optional));
    EXPECT_EQ(noEnd.error.Code(), Uefi::Codes::kMalformed);
    // And with too few bytes left for the counter, too.
    Decoded tooShort = Fill(LoadOption(1, u"d", Concat({FilePathNode(u"\\x.efi"), EndNode(0x01), bad})));
    EXPECT_EQ(tooShort.error.Code(), Uefi::Codes::kMalformed);
}

TEST(LoadOptions, FilePathStopsAtItsZeroAndToleratesAMissingOne) {
    Decoded padded = Fill(LoadOption(1, u"d", Concat({Node(4, 4, Concat({Utf16(u"\\a.efi"), Bytes(6, 0)})), EndNode()})));
    std::wstring path;
    ASSERT_TRUE(padded.options.GetPath(path).Succeeded());
    EXPECT_EQ(path, L"\\a.efi");
    Decoded unterminated = Fill(LoadOption(1, u"d", Concat({Node(4, 4, Utf16(u"\\b.efi", false)), EndNode()})));
    ASSERT_TRUE(unterminated.options.GetPath(path).Succeeded());
    EXPECT_EQ(path, L"\\b.efi");
}

TEST(DevicePathFactory, DispatchesOnTypeAndSubtype) {
    struct Case {
        Bytes bytes;
        std::uint8_t type, subType;
        bool hardDrive, file, end;
        std::ptrdiff_t consumed;
    } cases[] = {
        {HardDriveNode(1, 2, 3, {}, 2, 2), 4, 1, true, false, false, 42},
        {FilePathNode(u"\\a"), 4, 4, false, true, false, 10},
        {EndNode(0x01), 0x7F, 0x01, false, false, true, 4},
        {Node(4, 3, Bytes(20, 7)), 4, 3, false, false, false, 24},  // vendor-defined media node
        {Node(2, 1, Bytes(8, 0)), 2, 1, false, false, false, 12},   // ACPI
    };
    for (const Case& c : cases) {
        Uefi::ByteReader reader(c.bytes);
        Uefi::DevicePathNodePtr node;
        ASSERT_TRUE(Uefi::GetEfiDevicePathNode(reader, node).Succeeded());
        EXPECT_EQ(node->GetHeader().type, c.type);
        EXPECT_EQ(node->GetHeader().subType, c.subType);
        EXPECT_EQ(dynamic_cast<Uefi::HardDrivePathNode*>(node.get()) != nullptr, c.hardDrive);
        EXPECT_EQ(dynamic_cast<Uefi::FileDevicePathNode*>(node.get()) != nullptr, c.file);
        EXPECT_EQ(dynamic_cast<Uefi::EndDevicePathNode*>(node.get()) != nullptr, c.end);
        EXPECT_EQ(static_cast<std::ptrdiff_t>(c.bytes.size()) - reader.Left(), c.consumed);
    }
}

TEST(DevicePathNodes, NewNodesStartWithTheirStandardHeaders) {
    Uefi::HardDrivePathNode hardDrive;
    EXPECT_EQ(hardDrive.GetHeader().type, 4);
    EXPECT_EQ(hardDrive.GetHeader().subType, 1);
    EXPECT_EQ(hardDrive.GetLength(), 42);
    EXPECT_EQ(hardDrive.PartitionNumber(), 0u);
    EXPECT_EQ(hardDrive.SignatureType(), 0);
    Uefi::EndDevicePathNode end;
    EXPECT_EQ(end.GetHeader().type, 0x7F);
    EXPECT_EQ(end.GetHeader().subType, 0xFF);
    EXPECT_EQ(end.GetLength(), 4);
}

}  // namespace
