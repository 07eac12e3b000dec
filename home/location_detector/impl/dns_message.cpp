// Multicast DNS message decoding and query encoding.
#include "home/location_detector/impl/dns_message.h"

#include <algorithm>
#include <cstring>

namespace LocationDetector::Dns {
namespace {

constexpr std::size_t kHeaderSize = 12;
// The smallest question is a root name (1 octet) with type and class; the smallest record adds the
// TTL and the data length.
constexpr std::size_t kMinQuestionSize = 5;
constexpr std::size_t kMinRecordSize = 11;

struct Refusal {
    std::size_t offset;
    const char* reason;
};

class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> packet) : packet_(packet) {}

    std::size_t Offset() const { return offset_; }
    std::size_t Left() const { return packet_.size() - offset_; }

    void Need(std::size_t count, const char* what) const {
        if (count > Left()) throw Refusal{offset_, what};
    }
    std::uint8_t U8(const char* what) {
        Need(1, what);
        return packet_[offset_++];
    }
    std::uint16_t U16(const char* what) {
        Need(2, what);
        std::uint16_t value = static_cast<std::uint16_t>(packet_[offset_] << 8 | packet_[offset_ + 1]);
        offset_ += 2;
        return value;
    }
    std::uint32_t U32(const char* what) {
        std::uint32_t high = U16(what);
        return high << 16 | U16(what);
    }
    std::span<const std::uint8_t> Bytes(std::size_t count, const char* what) {
        Need(count, what);
        auto bytes = packet_.subspan(offset_, count);
        offset_ += count;
        return bytes;
    }

    // Reads a name at the current offset, following compression pointers (RFC 1035 section 4.1.4).
    // The reader ends up after the name's own octets, whatever the pointers pointed at.
    Name ReadName() {
        Name name;
        std::size_t wireOctets = 0;
        std::size_t position = offset_;
        // A pointer must point before the start of the run of labels that held it: every jump then goes
        // strictly backwards, so a chain of pointers ends.
        std::size_t runStart = offset_;
        std::optional<std::size_t> resume;
        int jumps = 0;
        for (;;) {
            if (position >= packet_.size()) throw Refusal{position, "name runs past the end of the packet"};
            std::uint8_t length = packet_[position];
            if ((length & 0xC0) == 0xC0) {
                if (position + 1 >= packet_.size()) throw Refusal{position, "compression pointer cut short"};
                std::size_t target = static_cast<std::size_t>((length & 0x3F) << 8 | packet_[position + 1]);
                if (target >= runStart) throw Refusal{position, "compression pointer does not point backwards"};
                if (target < kHeaderSize) throw Refusal{position, "compression pointer into the header"};
                if (++jumps > kMaxPointerJumps) throw Refusal{position, "too many compression pointers"};
                if (!resume) resume = position + 2;
                position = runStart = target;
                continue;
            }
            if ((length & 0xC0) != 0) throw Refusal{position, "unknown label type"};
            wireOctets += 1u + length;
            if (wireOctets > kMaxNameOctets) throw Refusal{position, "name longer than 255 octets"};
            if (length == 0) {
                offset_ = resume ? *resume : position + 1;
                return name;
            }
            if (position + 1 + length > packet_.size()) throw Refusal{position, "label runs past the end of the packet"};
            name.labels.emplace_back(reinterpret_cast<const char*>(packet_.data() + position + 1), length);
            position += 1u + length;
        }
    }

private:
    std::span<const std::uint8_t> packet_;
    std::size_t offset_ = 0;
};

RecordData ReadData(Reader& reader, std::uint16_t type, std::size_t length) {
    const std::size_t start = reader.Offset();
    const std::size_t end = start + length;
    auto expectEnd = [&](const char* what) {
        if (reader.Offset() != end) throw Refusal{start, what};
    };
    switch (type) {
    case kTypeA: {
        if (length != 4) throw Refusal{start, "A record data is not 4 octets"};
        AData data;
        auto bytes = reader.Bytes(4, "A record cut short");
        std::copy(bytes.begin(), bytes.end(), data.address.begin());
        return data;
    }
    case kTypeAaaa: {
        if (length != 16) throw Refusal{start, "AAAA record data is not 16 octets"};
        AaaaData data;
        auto bytes = reader.Bytes(16, "AAAA record cut short");
        std::copy(bytes.begin(), bytes.end(), data.address.begin());
        return data;
    }
    case kTypePtr: {
        PtrData data{reader.ReadName()};
        expectEnd("PTR name does not fill the record data");
        return data;
    }
    case kTypeSrv: {
        if (length < 7) throw Refusal{start, "SRV record data too short"};
        SrvData data;
        data.priority = reader.U16("SRV record cut short");
        data.weight = reader.U16("SRV record cut short");
        data.port = reader.U16("SRV record cut short");
        data.target = reader.ReadName();
        expectEnd("SRV target does not fill the record data");
        return data;
    }
    case kTypeTxt: {
        // RFC 6763 section 6.1: one or more length-prefixed strings filling the data exactly; an empty
        // data is tolerated as "no strings".
        TxtData data;
        while (reader.Offset() < end) {
            std::uint8_t size = reader.U8("TXT string cut short");
            if (reader.Offset() + size > end) throw Refusal{reader.Offset() - 1, "TXT string runs past the record data"};
            auto bytes = reader.Bytes(size, "TXT string cut short");
            data.strings.emplace_back(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        }
        return data;
    }
    default:
        reader.Bytes(length, "record data cut short");
        return std::monostate{};
    }
}

void ReadRecords(Reader& reader, std::size_t count, std::vector<Record>& records) {
    for (std::size_t i = 0; i < count; ++i) {
        Record record;
        record.name = reader.ReadName();
        record.type = reader.U16("record type cut short");
        std::uint16_t klass = reader.U16("record class cut short");
        record.cacheFlush = (klass & 0x8000) != 0;
        record.klass = klass & 0x7FFF;
        record.ttl = reader.U32("record TTL cut short");
        std::uint16_t length = reader.U16("record data length cut short");
        if (length > reader.Left()) throw Refusal{reader.Offset() - 2, "record data length past the end of the packet"};
        record.data = ReadData(reader, record.type, length);
        records.push_back(std::move(record));
    }
}

bool SameLabel(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
               return lower(x) == lower(y);
           });
}

}  // namespace

std::string Name::ToText() const {
    if (labels.empty()) return ".";
    std::string text;
    for (const std::string& label : labels) {
        for (char c : label) {
            if (c == '.' || c == '\\') text += '\\';
            text += c;
        }
        text += '.';
    }
    return text;
}

Name Name::FromText(std::string_view dotted) {
    Name name;
    while (!dotted.empty()) {
        size_t dot = dotted.find('.');
        std::string_view label = dotted.substr(0, dot);
        if (!label.empty()) name.labels.emplace_back(label);
        if (dot == std::string_view::npos) break;
        dotted.remove_prefix(dot + 1);
    }
    return name;
}

bool SameName(const Name& a, const Name& b) {
    return a.labels.size() == b.labels.size() && std::equal(a.labels.begin(), a.labels.end(), b.labels.begin(), SameLabel);
}

DecodeResult Decode(std::span<const std::uint8_t> packet) {
    DecodeResult result;
    try {
        Reader reader(packet);
        Message message;
        reader.Need(kHeaderSize, "packet shorter than the 12-octet header");
        message.id = reader.U16("header");
        message.flags = reader.U16("header");
        std::size_t questions = reader.U16("header");
        std::size_t answers = reader.U16("header");
        std::size_t authorities = reader.U16("header");
        std::size_t additionals = reader.U16("header");
        // Counts that the remaining octets cannot hold are refused before anything is read.
        std::size_t records = answers + authorities + additionals;
        if (records > kMaxRecords) throw Refusal{4, "more records than an answer may hold"};
        if (questions * kMinQuestionSize + records * kMinRecordSize > reader.Left())
            throw Refusal{4, "counts larger than the packet can hold"};

        for (std::size_t i = 0; i < questions; ++i) {
            Question question;
            question.name = reader.ReadName();
            question.type = reader.U16("question type cut short");
            std::uint16_t klass = reader.U16("question class cut short");
            question.unicastResponse = (klass & 0x8000) != 0;
            question.klass = klass & 0x7FFF;
            message.questions.push_back(std::move(question));
        }
        ReadRecords(reader, answers, message.answers);
        ReadRecords(reader, authorities, message.authorities);
        ReadRecords(reader, additionals, message.additionals);
        result.message = std::move(message);
    } catch (const Refusal& refusal) {
        result.error = refusal.reason;
        result.errorOffset = refusal.offset;
    }
    return result;
}

std::vector<std::uint8_t> EncodeQuery(std::uint16_t id, std::span<const Question> questions) {
    std::vector<std::uint8_t> packet;
    auto put16 = [&](std::uint16_t value) {
        packet.push_back(static_cast<std::uint8_t>(value >> 8));
        packet.push_back(static_cast<std::uint8_t>(value));
    };
    put16(id);
    put16(0);  // a standard query; RFC 6762 section 18 wants the other flags zero
    put16(static_cast<std::uint16_t>(questions.size()));
    put16(0);
    put16(0);
    put16(0);
    for (const Question& question : questions) {
        for (const std::string& label : question.name.labels) {
            std::size_t size = std::min(label.size(), kMaxLabelOctets);
            if (size == 0) continue;
            packet.push_back(static_cast<std::uint8_t>(size));
            packet.insert(packet.end(), label.begin(), label.begin() + static_cast<std::ptrdiff_t>(size));
        }
        packet.push_back(0);
        put16(question.type);
        put16(static_cast<std::uint16_t>(question.klass | (question.unicastResponse ? 0x8000 : 0)));
    }
    return packet;
}

}  // namespace LocationDetector::Dns
