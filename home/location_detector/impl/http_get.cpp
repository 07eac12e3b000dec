// The bounded HTTP GET of description documents.
#include "home/location_detector/impl/http_get.h"

#include <algorithm>

#include "home/location_detector/impl/socket.h"

namespace LocationDetector {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxUrlLength = 2048;
// How long one wait may last before the stop request is looked at again.
constexpr std::chrono::milliseconds kSlice{100};

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualsNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

std::optional<std::uint64_t> ParseDecimal(std::string_view text) {
    if (text.empty() || text.size() > 18) return std::nullopt;
    std::uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + static_cast<std::uint64_t>(c - '0');
    }
    return value;
}

std::optional<std::uint64_t> ParseHex(std::string_view text) {
    if (text.empty() || text.size() > 15) return std::nullopt;
    std::uint64_t value = 0;
    for (char c : text) {
        int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (digit < 0) return std::nullopt;
        value = value * 16 + static_cast<std::uint64_t>(digit);
    }
    return value;
}

std::chrono::milliseconds Until(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return std::clamp(left, std::chrono::milliseconds(0), kSlice);
}

Common::Error Failure(const std::wstring& message, Common::Error cause = {}) {
    return Common::Error::Make(Common::Codes::kUnexpected, message, std::move(cause));
}

}  // namespace

std::optional<HttpUrl> ParseHttpUrl(std::string_view url) {
    constexpr std::string_view kScheme = "http://";
    if (url.size() > kMaxUrlLength || url.size() < kScheme.size() || !EqualsNoCase(url.substr(0, kScheme.size()), kScheme))
        return std::nullopt;
    // Only visible ASCII: anything else could split the request line or the Host header.
    for (char c : url) {
        auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7F) return std::nullopt;
    }
    std::string_view rest = url.substr(kScheme.size());
    size_t authorityEnd = rest.find_first_of("/?#");
    std::string_view authority = rest.substr(0, authorityEnd);
    std::string_view target = authorityEnd == std::string_view::npos ? std::string_view() : rest.substr(authorityEnd);
    target = target.substr(0, target.find('#'));

    HttpUrl parsed;
    std::string_view host = authority;
    size_t colon = authority.find(':');
    if (colon != std::string_view::npos) {
        host = authority.substr(0, colon);
        std::string_view port = authority.substr(colon + 1);
        if (!port.empty()) {
            auto value = ParseDecimal(port);
            if (!value || *value == 0 || *value > 65535 || port.size() > 5) return std::nullopt;
            parsed.port = static_cast<std::uint16_t>(*value);
        }
    }
    auto address = ParseIpv4(host);
    if (!address) return std::nullopt;
    parsed.address = *address;
    parsed.host = std::string(authority);
    parsed.target = target.empty() || target.front() != '/' ? "/" + std::string(target) : std::string(target);
    return parsed;
}

HttpResponseReader::State HttpResponseReader::Feed(std::span<const std::uint8_t> bytes) {
    if (state_ != State::NeedMore) return state_;
    if (headDone_) return state_ = FeedBody(bytes);

    size_t searchFrom = head_.size() > 3 ? head_.size() - 3 : 0;
    head_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    // The head ends at an empty line; some small servers end their lines with LF alone.
    size_t end = std::string::npos, bodyStart = 0;
    for (size_t i = searchFrom; i < head_.size(); ++i) {
        if (head_[i] != '\n') continue;
        if (i + 1 < head_.size() && head_[i + 1] == '\n') {
            end = i;
            bodyStart = i + 2;
            break;
        }
        if (i + 2 < head_.size() && head_[i + 1] == '\r' && head_[i + 2] == '\n') {
            end = i;
            bodyStart = i + 3;
            break;
        }
    }
    if (end == std::string::npos) {
        return state_ = head_.size() > kMaxHeaderBytes ? State::Malformed : State::NeedMore;
    }
    if (bodyStart > kMaxHeaderBytes) return state_ = State::Malformed;
    std::string rest = head_.substr(bodyStart);
    head_.resize(end);
    headDone_ = true;
    if ((state_ = ParseHead()) != State::NeedMore) return state_;
    return state_ = FeedBody({reinterpret_cast<const std::uint8_t*>(rest.data()), rest.size()});
}

HttpResponseReader::State HttpResponseReader::Finish() {
    if (state_ != State::NeedMore) return state_;
    // Only a body that runs to the end of the connection may end with it; anything else was cut short.
    return state_ = headDone_ && framing_ == Framing::UntilClose ? State::Complete : State::Malformed;
}

HttpResponseReader::State HttpResponseReader::ParseHead() {
    std::string_view head = head_;
    size_t lineEnd = head.find('\n');
    std::string_view statusLine = Trim(head.substr(0, lineEnd));
    // "HTTP/1.1 200 OK"
    if (statusLine.size() < 12 || statusLine.substr(0, 5) != "HTTP/" || statusLine.find(' ') == std::string_view::npos)
        return State::Malformed;
    std::string_view code = statusLine.substr(statusLine.find(' ') + 1, 3);
    auto status = ParseDecimal(code);
    if (!status || code.size() != 3) return State::Malformed;
    status_ = static_cast<int>(*status);

    std::optional<std::uint64_t> length;
    bool chunked = false;
    while (lineEnd != std::string_view::npos) {
        head.remove_prefix(lineEnd + 1);
        lineEnd = head.find('\n');
        std::string_view line = Trim(head.substr(0, lineEnd));
        size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        std::string_view name = line.substr(0, colon);
        std::string_view value = Trim(line.substr(colon + 1));
        if (EqualsNoCase(name, "Content-Length")) {
            auto parsed = ParseDecimal(value);
            if (!parsed || (length && *length != *parsed)) return State::Malformed;
            length = parsed;
        } else if (EqualsNoCase(name, "Transfer-Encoding")) {
            // The last coding decides the framing; "chunked" must be it when present.
            chunked = value.size() >= 7 && EqualsNoCase(value.substr(value.size() - 7), "chunked");
        }
    }
    // The document is wanted only from a 200 answer; other answers end here.
    if (status_ != 200) return State::Complete;
    if (chunked) {
        framing_ = Framing::Chunked;
    } else if (length) {
        if (*length > maxBody_) return State::TooLarge;
        framing_ = Framing::Length;
        remaining_ = *length;
        if (remaining_ == 0) return State::Complete;
    }
    return State::NeedMore;
}

HttpResponseReader::State HttpResponseReader::FeedBody(std::span<const std::uint8_t> bytes) {
    switch (framing_) {
    case Framing::Length: {
        auto take = static_cast<size_t>(std::min<std::uint64_t>(remaining_, bytes.size()));
        remaining_ -= take;
        State state = Append(bytes.first(take));
        return state == State::NeedMore && remaining_ == 0 ? State::Complete : state;
    }
    case Framing::Chunked:
        return FeedChunked(bytes);
    case Framing::UntilClose:
        return Append(bytes);
    }
    return State::Malformed;
}

HttpResponseReader::State HttpResponseReader::FeedChunked(std::span<const std::uint8_t> bytes) {
    size_t i = 0;
    while (i < bytes.size()) {
        if (chunkPart_ == ChunkPart::Data) {
            auto take = static_cast<size_t>(std::min<std::uint64_t>(remaining_, bytes.size() - i));
            if (State state = Append(bytes.subspan(i, take)); state != State::NeedMore) return state;
            i += take;
            remaining_ -= take;
            if (remaining_ == 0) {
                chunkPart_ = ChunkPart::DataEnd;
                line_.clear();
            }
            continue;
        }
        char c = static_cast<char>(bytes[i++]);
        if (c != '\n') {
            line_ += c;
            if (line_.size() > kMaxChunkLineBytes) return State::Malformed;
            if (chunkPart_ == ChunkPart::Trailer && ++remaining_ > kMaxHeaderBytes) return State::Malformed;
            continue;
        }
        std::string_view line = Trim(line_);
        switch (chunkPart_) {
        case ChunkPart::SizeLine: {
            auto size = ParseHex(Trim(line.substr(0, line.find(';'))));
            if (!size) return State::Malformed;
            if (*size > maxBody_ - body_.size()) return State::TooLarge;
            remaining_ = *size;
            chunkPart_ = *size == 0 ? ChunkPart::Trailer : ChunkPart::Data;
            break;
        }
        case ChunkPart::DataEnd:
            if (!line.empty()) return State::Malformed;
            chunkPart_ = ChunkPart::SizeLine;
            break;
        case ChunkPart::Trailer:
            if (line.empty()) return State::Complete;
            break;
        case ChunkPart::Data:
            break;
        }
        line_.clear();
    }
    return State::NeedMore;
}

HttpResponseReader::State HttpResponseReader::Append(std::span<const std::uint8_t> bytes) {
    if (bytes.size() > maxBody_ - body_.size()) return State::TooLarge;
    body_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return State::NeedMore;
}

Common::Error HttpGet(const HttpUrl& url, const HttpLimits& limits, const std::function<bool()>& stopping,
                      std::string& body) {
    return Common::CatchErrors([&]() -> Common::Error {
        const Clock::time_point start = Clock::now();
        const Clock::time_point deadline = start + limits.totalTime;
        const Clock::time_point connectDeadline = start + std::min(limits.connectTimeout, limits.totalTime);
        const Net::Endpoint server{url.address, url.port};

        Net::Socket socket = Net::OpenTcp();
        Common::Error failure;
        Net::ConnectState state = Net::StartConnect(socket, server, failure);
        while (state == Net::ConnectState::Pending) {
            if (stopping()) return Failure(L"The download was stopped.");
            if (Clock::now() >= connectDeadline) return Failure(L"The connection timed out.");
            state = Net::WaitConnected(socket, Until(connectDeadline), failure);
        }
        if (state == Net::ConnectState::Failed) return failure;

        std::string request = "GET " + url.target + " HTTP/1.1\r\nHost: " + url.host + "\r\nConnection: close\r\n\r\n";
        std::span<const std::uint8_t> unsent(reinterpret_cast<const std::uint8_t*>(request.data()), request.size());
        while (!unsent.empty()) {
            if (stopping()) return Failure(L"The download was stopped.");
            if (Clock::now() >= deadline) return Failure(L"The request timed out.");
            std::size_t sent = Net::Send(socket, unsent);
            if (sent == 0) Net::WaitWritable(socket, Until(deadline));
            unsent = unsent.subspan(sent);
        }

        HttpResponseReader reader(limits.maxBody);
        std::vector<std::uint8_t> buffer(16 * 1024);
        const Net::Socket* sockets[] = {&socket};
        HttpResponseReader::State result = HttpResponseReader::State::NeedMore;
        while (result == HttpResponseReader::State::NeedMore) {
            if (stopping()) return Failure(L"The download was stopped.");
            if (Clock::now() >= deadline) return Failure(L"The answer did not come in time.");
            if (Net::WaitReadable(sockets, Until(deadline)).empty()) continue;
            std::optional<std::size_t> received = Net::Receive(socket, buffer);
            if (!received) continue;
            result = *received == 0 ? reader.Finish() : reader.Feed(std::span(buffer).first(*received));
        }
        if (result == HttpResponseReader::State::TooLarge) return Failure(L"The document is larger than the limit.");
        if (result == HttpResponseReader::State::Malformed) return Failure(L"The answer is not a valid HTTP response.");
        if (reader.StatusCode() != 200)
            return Failure(L"The server answered with HTTP status " + std::to_wstring(reader.StatusCode()) + L".");
        body = reader.Body();
        return {};
    });
}

}  // namespace LocationDetector
