// Load-option and device-path decoding over byte vectors laid out as the UEFI standard defines them.
#include <gtest/gtest.h>

#include "core/grub_parser/uefi_bootvars/load_options_impl.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"
#include "tests/core/grub_parser/uefi_bootvars/uefi_test_bytes.h"

namespace {

using namespace UefiTest;
using Uefi::Codes::kIncorrectBootPath;
using Uefi::Codes::kIncorrectSignature;
using Uefi::Codes::kMalformed;

struct Decoded {
    Uefi::LoadOptionsImpl options;
    Common::Error error;
    std::ptrdiff_t left = 0;  // bytes after what Fill read
};

Decoded Fill(const Bytes& bytes) {
    Decoded d;
    Uefi::ByteReader reader(bytes);
    d.error = d.options.Fill(reader);
    d.left = reader.Left();
    return d;
}

// The codes of the partition queries, in the order number, start, size, disk type, GUID, MBR signature.
std::vector<std::uint32_t> QueryCodes(const Uefi::LoadOptions& options) {
    std::uint32_t u32 = 0;
    std::uint64_t u64 = 0;
    Uefi::Guid guid;
    return {options.GetPartitionNumber(u32).Code(), options.GetPartitionStart(u64).Code(),
            options.GetPartitionSize(u64).Code(),   options.GetDiskType(u32).Code(),
            options.GetPartitionGUID(guid).Code(),  options.GetNtSignature(u32).Code()};
}

// The fixture's Boot0000 (GPT: hard-drive, file-path and end nodes) and Boot000A (MBR) show their values
// in the report's golden text; here is what that text does not show.
TEST(LoadOptions, HardDriveNodesOfGptMbrAndOtherDisks) {
    std::map<std::wstring, Bytes> fixture = FixtureVariables();
    Decoded gpt = Fill(fixture[L"Boot0000"]);
    Decoded mbr = Fill(fixture[L"Boot000A"]);
    Decoded other = Fill(LoadOption(1, u"d", Concat({HardDriveNode(1, 0, 0, {}, 0), EndNode()})));
    ASSERT_TRUE(gpt.error.Succeeded()) << gpt.error.ToString();
    EXPECT_EQ(gpt.options.Nodes().size(), 3u);
    EXPECT_EQ(gpt.left, 14) << "OptionalData (\"WINDOWS\") is not decoded";
    EXPECT_EQ(QueryCodes(gpt.options), (std::vector<std::uint32_t>{0, 0, 0, 0, 0, kIncorrectSignature}));
    EXPECT_EQ(QueryCodes(mbr.options), (std::vector<std::uint32_t>{0, 0, 0, 0, kIncorrectSignature, 0}));
    EXPECT_EQ(QueryCodes(other.options), (std::vector<std::uint32_t>{0, 0, 0, 0, kIncorrectSignature, kIncorrectSignature}));
    std::uint32_t type = 0, signature = 0;
    Uefi::Guid guid;
    ASSERT_TRUE(mbr.options.GetDiskType(type).Succeeded() && mbr.options.GetNtSignature(signature).Succeeded());
    EXPECT_EQ(std::pair(type, signature), std::pair(Uefi::DiskType::kMbr, 0x12345678u));
    ASSERT_TRUE(other.options.GetDiskType(type).Succeeded());
    EXPECT_EQ(type, Uefi::DiskType::kUnknown);
    EXPECT_EQ(mbr.options.GetPartitionGUID(guid).Message(), L"Incorrect boot signature.");
}

TEST(LoadOptions, PathsWithoutHardDriveNodeAnswerIncorrectBootPath) {
    const Bytes paths[] = {
        // PXE: PCI (1, 1), MAC (3, 11), IPv4 (3, 12); a firmware application: volume (4, 7), file (4, 6).
        Concat({Node(1, 1, {0, 3}), Node(3, 11, Bytes(33, 0)), Node(3, 12, Bytes(23, 0)), EndNode()}),
        Concat({Node(4, 7, Bytes(16, 0xA1)), Node(4, 6, Bytes(16, 0xB2)), EndNode()}),
        {},
    };
    for (const Bytes& path : paths) {
        Decoded d = Fill(LoadOption(1, u"d", path));
        ASSERT_TRUE(d.error.Succeeded());
        EXPECT_EQ(QueryCodes(d.options), std::vector<std::uint32_t>(6, kIncorrectBootPath));
        std::u16string text;
        Common::Error noPath = d.options.GetPath(text);
        EXPECT_EQ(noPath.Code(), kIncorrectBootPath);
        EXPECT_EQ(noPath.Message(), L"Incorrect boot path.");
    }
}

TEST(LoadOptions, TruncatedOrMalformedInputFails) {
    const std::pair<const char*, Bytes> cases[] = {
        {"empty", {}},
        {"no path-list length", {1, 0, 0, 0, 4}},
        {"description without its zero", Concat({{1, 0, 0, 0, 4, 0}, Utf16(u"Broken", false), EndNode()})},
        {"odd byte for a description", {1, 0, 0, 0, 4, 0, 0x41}},
        {"node longer than what is left", LoadOption(1, u"d", Node(1, 1, {0, 3}, 40))},
        {"node header cut short", LoadOption(1, u"d", {0x7F, 0xFF}, {}, 4)},
        {"hard-drive node declared short", LoadOption(1, u"d", Node(4, 1, Bytes(30, 0)))},
        {"file-path node under 6 bytes", LoadOption(1, u"d", Node(4, 4, {0x41}))},
        {"file-path node of odd length", LoadOption(1, u"d", Concat({Node(4, 4, {0x41, 0, 0}), EndNode()}))},
        {"end node under 4 bytes", LoadOption(1, u"d", Node(0x7F, 0xFF, {}, 2), {}, 4)},
        {"other node under 4 bytes", LoadOption(1, u"d", Concat({Node(1, 1, {}, 3), Bytes(4, 0)}), {}, 8)},
        {"path list longer than the value", LoadOption(1, u"d", EndNode(), {}, 12)},
    };
    for (const auto& [what, bytes] : cases) {
        Decoded d = Fill(bytes);
        EXPECT_EQ(d.error.Code(), kMalformed) << what;
        EXPECT_EQ(d.error.Message(), L"") << what;
    }
    // A node declaring more than the path list has left drives the counter below zero.
    Decoded overrun = Fill(LoadOption(1, u"d", Concat({FilePathNode(u"\\a\\b.efi"), EndNode()}), {}, 10));
    EXPECT_EQ(overrun.error.Code(), kIncorrectBootPath);
    EXPECT_EQ(overrun.error.Message(), L"Incorrect boot path.");
}

TEST(LoadOptions, HardDriveAndEndNodesConsumeLessThanTheyCount) {
    // A hard-drive node declaring 46 bytes: its 4 extra bytes are read as the next node. As an end node
    // they bring the counter (50 - 46 - 4) to 0 and the real end node is left unread.
    Decoded asEnd = Fill(LoadOption(1, u"d", Concat({HardDriveNode(1, 2, 3, GptSignature(), 2, 46), EndNode(1), EndNode()})));
    ASSERT_TRUE(asEnd.error.Succeeded()) << asEnd.error.ToString();
    ASSERT_EQ(asEnd.options.Nodes().size(), 2u);
    EXPECT_EQ(asEnd.options.Nodes()[1]->GetHeader().subType, 1);
    EXPECT_EQ(asEnd.left, 4);
    // As zero padding they are a node of length 0, which fails the option.
    Decoded padded = Fill(LoadOption(1, u"d", Concat({HardDriveNode(1, 2, 3, GptSignature(), 2, 46), Bytes(4, 0), EndNode()})));
    EXPECT_EQ(padded.error.Code(), kMalformed);

    // An end node declaring 8 bytes moves the cursor by 4 only.
    Decoded end = Fill(LoadOption(1, u"d", Node(0x7F, 0xFF, {}, 8), Bytes(4, 0xCC), 8));
    ASSERT_TRUE(end.error.Succeeded());
    EXPECT_EQ(end.left, 4);
}

TEST(LoadOptions, UnreadableNodeAfterAnEndNodeBecomesTrailingBytes) {
    // A node declaring 2 bytes after an end-of-instance node: the counter's 6 bytes, read from where the
    // cursor stopped (past the bad header), are kept and the option stands.
    Bytes bad{0x01, 0x01, 0x02, 0x00, 0xAA, 0xBB};
    Bytes optional{0xCC, 0xDD, 0xEE, 0xFF};
    Decoded d = Fill(LoadOption(1, u"d", Concat({FilePathNode(u"\\x.efi"), EndNode(1), bad}), optional));
    ASSERT_TRUE(d.error.Succeeded()) << d.error.ToString();
    EXPECT_EQ(d.options.Nodes().size(), 2u);
    EXPECT_EQ(d.options.TrailingBytes(), (Bytes{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}));
    // Without the end node before it, or without the bytes to fill the counter, it fails the option.
    EXPECT_EQ(Fill(LoadOption(1, u"d", Concat({FilePathNode(u"\\x.efi"), bad}), optional)).error.Code(), kMalformed);
    EXPECT_EQ(Fill(LoadOption(1, u"d", Concat({FilePathNode(u"\\x.efi"), EndNode(1), bad}))).error.Code(), kMalformed);
}

}  // namespace
