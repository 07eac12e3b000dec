// The multicast DNS decoder over packets written out byte by byte: records of the kinds a browse
// answer holds, name compression, and every way a packet can lie about its lengths.
#include "home/location_detector/impl/dns_message.h"

#include <gtest/gtest.h>

namespace {

using namespace LocationDetector;
using Bytes = std::vector<std::uint8_t>;

// Appends bytes and characters in the order written, so a test reads like the packet.
struct Packet {
    Bytes bytes;
    Packet& operator()(std::initializer_list<int> values) {
        for (int value : values) bytes.push_back(static_cast<std::uint8_t>(value));
        return *this;
    }
    Packet& operator()(std::string_view text) {
        bytes.insert(bytes.end(), text.begin(), text.end());
        return *this;
    }
};

// Header: ID 0, flags, and the four counts.
Packet Header(int questions, int answers, int authorities, int additionals, int flags = 0x8400) {
    Packet p;
    p({0, 0, flags >> 8, flags & 0xFF, 0, questions, 0, answers, 0, authorities, 0, additionals});
    return p;
}

// An answer to a browse for _smb._tcp.local. as a responder sends it: the PTR in the answers, SRV, TXT
// and A among the additional records, names compressed.
Bytes BrowseAnswer() {
    Packet p = Header(0, 1, 0, 3);
    // offset 12: _smb._tcp.local. PTR
    p({4})("_smb")({4})("_tcp")({5})("local")({0});  // 12..28; "local" at 22
    p({0x00, 0x0C, 0x00, 0x01, 0x00, 0x00, 0x11, 0x94, 0x00, 0x0A});
    p({7})("NAS Box")({0xC0, 0x0C});  // 39..48: NAS Box._smb._tcp.local.
    // offset 49: SRV of the instance, cache-flush class
    p({0xC0, 39, 0x00, 0x21, 0x80, 0x01, 0x00, 0x00, 0x00, 0x78, 0x00, 0x0C});
    p({0x00, 0x00, 0x00, 0x00, 0x01, 0xBD})({3})("nas")({0xC0, 22});  // 61..72; "nas" at 67
    // offset 73: TXT of the instance: "model=Vault" and an empty string
    p({0xC0, 39, 0x00, 0x10, 0x80, 0x01, 0x00, 0x00, 0x11, 0x94, 0x00, 0x0D});
    p({11})("model=Vault")({0});
    // offset 98: A of nas.local.
    p({0xC0, 67, 0x00, 0x01, 0x80, 0x01, 0x00, 0x00, 0x00, 0x78, 0x00, 0x04, 10, 0, 0, 5});
    return p.bytes;
}

std::string Refusal(const Bytes& packet) {
    Dns::DecodeResult result = Dns::Decode(packet);
    return result.message ? std::string("accepted") : result.error;
}

TEST(DnsDecodeTest, ReadsABrowseAnswerWithCompressedNames) {
    Bytes packet = BrowseAnswer();
    ASSERT_EQ(packet.size(), 114u);
    Dns::DecodeResult result = Dns::Decode(packet);
    ASSERT_TRUE(result.message) << result.error << " at " << result.errorOffset;
    const Dns::Message& m = *result.message;
    EXPECT_TRUE(m.IsResponse());
    ASSERT_EQ(m.answers.size(), 1u);
    ASSERT_EQ(m.additionals.size(), 3u);

    const Dns::Record& ptr = m.answers[0];
    EXPECT_EQ(ptr.name.ToText(), "_smb._tcp.local.");
    EXPECT_EQ(ptr.ttl, 4500u);
    EXPECT_FALSE(ptr.cacheFlush);
    EXPECT_EQ(std::get<Dns::PtrData>(ptr.data).target.ToText(), "NAS Box._smb._tcp.local.");

    const Dns::Record& srv = m.additionals[0];
    EXPECT_EQ(srv.name.ToText(), "NAS Box._smb._tcp.local.");
    EXPECT_TRUE(srv.cacheFlush);
    EXPECT_EQ(srv.klass, Dns::kClassIn);
    const auto& srvData = std::get<Dns::SrvData>(srv.data);
    EXPECT_EQ(srvData.port, 445);
    EXPECT_EQ(srvData.target.ToText(), "nas.local.");

    EXPECT_EQ(std::get<Dns::TxtData>(m.additionals[1].data).strings, (std::vector<std::string>{"model=Vault", ""}));

    const Dns::Record& a = m.additionals[2];
    EXPECT_EQ(a.name.ToText(), "nas.local.");
    EXPECT_EQ(FormatIpv4(std::get<Dns::AData>(a.data).address), "10.0.0.5");
}

TEST(DnsDecodeTest, QuestionsAaaaUnknownTypesAndEmptyTxt) {
    Packet p = Header(1, 3, 0, 0, 0x0000);
    p({4})("_smb")({4})("_tcp")({5})("local")({0})({0x00, 0x0C, 0x80, 0x01});  // QU question
    p({0xC0, 12, 0x00, 0x1C, 0x00, 0x01, 0, 0, 0, 10, 0x00, 0x10});
    p({0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
    p({0xC0, 12, 0x00, 0x2F, 0x00, 0x01, 0, 0, 0, 10, 0x00, 0x03, 1, 2, 3});  // NSEC: kept without data
    p({0xC0, 12, 0x00, 0x10, 0x00, 0x01, 0, 0, 0, 10, 0x00, 0x00});           // TXT with no data at all
    Dns::DecodeResult result = Dns::Decode(p.bytes);
    ASSERT_TRUE(result.message) << result.error;
    ASSERT_EQ(result.message->questions.size(), 1u);
    EXPECT_TRUE(result.message->questions[0].unicastResponse);
    EXPECT_EQ(result.message->questions[0].klass, Dns::kClassIn);
    EXPECT_FALSE(result.message->IsResponse());
    EXPECT_EQ(FormatIpv6(std::get<Dns::AaaaData>(result.message->answers[0].data).address), "fe80::1");
    EXPECT_TRUE(std::holds_alternative<std::monostate>(result.message->answers[1].data));
    EXPECT_TRUE(std::get<Dns::TxtData>(result.message->answers[2].data).strings.empty());
}

TEST(DnsDecodeTest, PointersMustGoBackwardsAndCannotLoop) {
    // A pointer to itself.
    EXPECT_EQ(Refusal(Header(1, 0, 0, 0)({0xC0, 12, 0, 1, 0, 1}).bytes), "compression pointer does not point backwards");
    // A pointer to the start of the name that holds it: "a" then back to "a" for ever.
    EXPECT_EQ(Refusal(Header(1, 0, 0, 0)({1})("a")({0xC0, 12, 0, 1, 0, 1}).bytes), "compression pointer does not point backwards");
    // Two pointers pointing at each other, the first ahead.
    EXPECT_EQ(Refusal(Header(1, 0, 0, 0)({0xC0, 14, 0xC0, 12, 0, 1, 0, 1}).bytes), "compression pointer does not point backwards");
    // Into the header.
    EXPECT_EQ(Refusal(Header(2, 0, 0, 0)({0, 0, 1, 0, 1})({0xC0, 5, 0, 1, 0, 1}).bytes), "compression pointer into the header");
    // A pointer that is cut off by the end of the packet.
    EXPECT_EQ(Refusal(Header(1, 0, 0, 0)({1})("a")({1})("b")({0xC0}).bytes), "compression pointer cut short");
    // Label types 01 and 10 are not defined for multicast DNS.
    EXPECT_EQ(Refusal(Header(1, 0, 0, 0)({0x41, 'a', 0, 0, 1, 0, 1}).bytes), "unknown label type");
    EXPECT_EQ(Refusal(Header(1, 0, 0, 0)({0x81, 'a', 0, 0, 1, 0, 1}).bytes), "unknown label type");
}

// A question "x." at 12, then a record whose unknown-type data holds a chain of `links` pointers, each
// to the one before (the first to "x."), then a question-less record named by the chain's last pointer.
Bytes PointerChain(int links) {
    Packet p = Header(1, 2, 0, 0);
    p({1})("x")({0})({0, 1, 0, 1});  // 12..18
    p({0xC0, 12, 0xFF, 0x00, 0, 1, 0, 0, 0, 0, 0, 2 * links});  // 19..30, data from 31
    for (int i = 0; i < links; ++i) {
        int previous = i == 0 ? 12 : 31 + 2 * (i - 1);
        p({0xC0, previous});
    }
    int last = 31 + 2 * (links - 1);
    p({0xC0, last, 0, 1, 0, 1, 0, 0, 0, 0, 0, 4, 1, 2, 3, 4});
    return p.bytes;
}

TEST(DnsDecodeTest, PointerChainsAreLimited) {
    // The last record's name takes links + 1 jumps.
    Dns::DecodeResult ok = Dns::Decode(PointerChain(Dns::kMaxPointerJumps - 1));
    ASSERT_TRUE(ok.message) << ok.error;
    EXPECT_EQ(ok.message->answers[1].name.ToText(), "x.");
    EXPECT_EQ(Refusal(PointerChain(Dns::kMaxPointerJumps)), "too many compression pointers");
}

TEST(DnsDecodeTest, NameAndLabelLengthLimits) {
    std::string label63(63, 'a');
    // Three labels of 63 and one of 61: 3 * 64 + 62 + 1 = 255 octets.
    Packet ok = Header(1, 0, 0, 0);
    ok({63})(label63)({63})(label63)({63})(label63)({61})(std::string(61, 'b'))({0, 0, 1, 0, 1});
    EXPECT_EQ(Refusal(ok.bytes), "accepted");
    Packet tooLong = Header(1, 0, 0, 0);
    tooLong({63})(label63)({63})(label63)({63})(label63)({62})(std::string(62, 'b'))({0, 0, 1, 0, 1});
    EXPECT_EQ(Refusal(tooLong.bytes), "name longer than 255 octets");
    // The same limit holds when the octets come through pointers.
    Packet viaPointers = Header(2, 0, 0, 0);
    viaPointers({63})(label63)({63})(label63)({0, 0, 1, 0, 1});           // 12..145
    viaPointers({63})(label63)({63})(label63)({0xC0, 12, 0, 1, 0, 1});   // 4 * 64 + 1 octets
    EXPECT_EQ(Refusal(viaPointers.bytes), "name longer than 255 octets");
}

TEST(DnsDecodeTest, TruncatedPacketsAreRefused) {
    Bytes full = BrowseAnswer();
    EXPECT_EQ(Refusal(Bytes(full.begin(), full.begin() + 11)), "packet shorter than the 12-octet header");
    // Every cut inside the records is noticed; none is taken as a shorter valid packet.
    for (size_t size = 12; size < full.size(); ++size)
        EXPECT_NE(Refusal(Bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(size))), "accepted") << size;
    EXPECT_EQ(Refusal(Header(1, 0, 0, 0)({5})("abcd").bytes), "label runs past the end of the packet");
    EXPECT_EQ(Refusal(Header(1, 0, 0, 0)({1})("a")({2})("bc").bytes), "name runs past the end of the packet");
}

TEST(DnsDecodeTest, LengthsThatLieAreRefused) {
    auto record = [](int type, std::initializer_list<int> lengthAndData) {
        Packet p = Header(0, 1, 0, 0);
        p({1})("n")({0})({0, type, 0, 1, 0, 0, 0, 1});
        p(lengthAndData);
        return p.bytes;
    };
    EXPECT_EQ(Refusal(record(1, {0, 5, 1, 2, 3, 4, 5})), "A record data is not 4 octets");
    EXPECT_EQ(Refusal(record(28, {0, 4, 1, 2, 3, 4})), "AAAA record data is not 16 octets");
    EXPECT_EQ(Refusal(record(1, {0, 40, 1, 2, 3, 4})), "record data length past the end of the packet");
    EXPECT_EQ(Refusal(record(16, {0, 3, 5, 'a', 'b'})), "TXT string runs past the record data");
    EXPECT_EQ(Refusal(record(33, {0, 5, 0, 0, 0, 0, 0})), "SRV record data too short");
    // SRV and PTR names must end exactly where the data does.
    EXPECT_EQ(Refusal(record(33, {0, 9, 0, 0, 0, 0, 1, 0xBD, 0xC0, 12, 0})), "SRV target does not fill the record data");
    EXPECT_EQ(Refusal(record(12, {0, 4, 1, 'a', 0, 0})), "PTR name does not fill the record data");
    // A PTR name whose labels run past its data into the next bytes.
    EXPECT_EQ(Refusal(record(12, {0, 1, 1, 'a', 0})), "PTR name does not fill the record data");
}

TEST(DnsDecodeTest, CountsThePacketCannotHoldAreRefusedBeforeReading) {
    EXPECT_EQ(Refusal(Header(0, 0xFF, 0, 0).bytes), "counts larger than the packet can hold");
    Packet many;
    many({0, 0, 0x84, 0x00, 0, 0, 0x02, 0x5A, 0, 0, 0, 0});  // 602 answers
    many.bytes.resize(12 + 602 * 11);
    EXPECT_EQ(Refusal(many.bytes), "more records than an answer may hold");
}

TEST(DnsNameTest, TextEscapesDotsAndBackslashesInsideLabels) {
    Dns::Name name{{"Office.NAS \\ 2", "_smb", "_tcp", "local"}};
    EXPECT_EQ(name.ToText(), "Office\\.NAS \\\\ 2._smb._tcp.local.");
    EXPECT_EQ(Dns::Name{}.ToText(), ".");
    EXPECT_TRUE(Dns::SameName(Dns::Name::FromText("NAS.Local."), Dns::Name::FromText("nas.local")));
    EXPECT_FALSE(Dns::SameName(Dns::Name::FromText("nas.local."), Dns::Name::FromText("nas.local.x")));
}

TEST(DnsEncodeTest, QueriesAreUncompressedStandardQueries) {
    std::vector<Dns::Question> questions{{Dns::Name::FromText("_smb._tcp.local."), Dns::kTypePtr, Dns::kClassIn, false},
                                         {Dns::Name::FromText("nas.local."), Dns::kTypeA, Dns::kClassIn, true}};
    Bytes expected = Header(2, 0, 0, 0, 0x0000)({4})("_smb")({4})("_tcp")({5})("local")({0, 0, 12, 0, 1})({3})("nas")({5})(
                         "local")({0, 0, 1, 0x80, 1})
                         .bytes;
    EXPECT_EQ(Dns::EncodeQuery(0, questions), expected);
    Dns::DecodeResult back = Dns::Decode(expected);
    ASSERT_TRUE(back.message);
    EXPECT_TRUE(back.message->questions[1].unicastResponse);
}

}  // namespace
