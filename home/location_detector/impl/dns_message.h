// Multicast DNS messages (RFC 1035 wire format as used by RFC 6762): a decoder of whole packets over a
// byte span, and the encoder of the queries this program sends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "home/location_detector/impl/utils.h"

namespace LocationDetector::Dns {

inline constexpr std::uint16_t kTypeA = 1;
inline constexpr std::uint16_t kTypePtr = 12;
inline constexpr std::uint16_t kTypeTxt = 16;
inline constexpr std::uint16_t kTypeAaaa = 28;
inline constexpr std::uint16_t kTypeSrv = 33;
inline constexpr std::uint16_t kClassIn = 1;

// RFC 1035 section 3.1: a name is at most 255 octets on the wire, a label at most 63.
inline constexpr std::size_t kMaxNameOctets = 255;
inline constexpr std::size_t kMaxLabelOctets = 63;
// Compression pointers of one name may be followed this often; each must also point before the
// part of the name that was read last, so that no pointer chain can loop.
inline constexpr int kMaxPointerJumps = 16;
// More records than this in one packet is no answer of a storage device.
inline constexpr std::size_t kMaxRecords = 512;

// A name as its labels, the root left out. Labels are bytes: RFC 6763 section 4.3 lets instance
// names hold dots, blanks and UTF-8.
struct Name {
    std::vector<std::string> labels;

    // "My\.NAS._smb._tcp.local.": dots and backslashes inside a label are escaped with a backslash.
    std::string ToText() const;
    // Splits plain dotted text without escapes ("_smb._tcp.local."); empty labels are dropped.
    static Name FromText(std::string_view dotted);
};

// Names compare without regard to ASCII case (RFC 1035 section 2.3.3).
bool SameName(const Name& a, const Name& b);

struct Question {
    Name name;
    std::uint16_t type = 0;
    std::uint16_t klass = kClassIn;
    bool unicastResponse = false;  // the top bit of the class (RFC 6762 section 5.4)
};

struct PtrData {
    Name target;
};
struct SrvData {
    std::uint16_t priority = 0;
    std::uint16_t weight = 0;
    std::uint16_t port = 0;
    Name target;
};
struct TxtData {
    std::vector<std::string> strings;
};
struct AData {
    Ipv4Address address{};
};
struct AaaaData {
    Ipv6Address address{};
};
// Records of other types keep no data.
using RecordData = std::variant<std::monostate, PtrData, SrvData, TxtData, AData, AaaaData>;

struct Record {
    Name name;
    std::uint16_t type = 0;
    std::uint16_t klass = kClassIn;
    bool cacheFlush = false;  // the top bit of the class (RFC 6762 section 10.2)
    std::uint32_t ttl = 0;
    RecordData data;
};

struct Message {
    std::uint16_t id = 0;
    std::uint16_t flags = 0;
    std::vector<Question> questions;
    std::vector<Record> answers;
    std::vector<Record> authorities;
    std::vector<Record> additionals;

    bool IsResponse() const { return (flags & 0x8000) != 0; }
    std::uint8_t Opcode() const { return static_cast<std::uint8_t>(flags >> 11 & 0x0F); }
    std::uint8_t ResponseCode() const { return static_cast<std::uint8_t>(flags & 0x0F); }
};

// Either the message or why the packet was refused and where; a packet is taken whole or not at all.
struct DecodeResult {
    std::optional<Message> message;
    std::string error;
    std::size_t errorOffset = 0;
};

DecodeResult Decode(std::span<const std::uint8_t> packet);

// A query with the given questions, uncompressed. Labels longer than 63 bytes are cut.
std::vector<std::uint8_t> EncodeQuery(std::uint16_t id, std::span<const Question> questions);

}  // namespace LocationDetector::Dns
