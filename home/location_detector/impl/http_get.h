// A small HTTP/1.1 GET for device description documents, bounded in size and time, and its pure parts:
// the URL reader and the response reader.
//
// miniupnpc's own GET (miniwget) keeps reading as long as the server keeps sending, with no limit on
// the size and only a per-read time-out, so a device that sends an endless document would hold the
// discovery and its memory for ever; this one stops at the limits below.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "core/common/error.h"
#include "home/location_detector/impl/utils.h"

namespace LocationDetector {

// Only "http://" with an IPv4 literal host is taken: a device on the local link announces its address,
// and a host name would need a resolver call that cannot be bounded in time.
struct HttpUrl {
    Ipv4Address address{};
    std::uint16_t port = 80;
    std::string host;    // as written in the URL, with the port when one was written: the Host header
    std::string target;  // path and query, at least "/"
};
std::optional<HttpUrl> ParseHttpUrl(std::string_view url);

// Reads a response as it arrives: the status line and headers, then a body delimited by
// Content-Length, by chunked transfer coding (RFC 9112 section 7.1) or by the end of the connection.
class HttpResponseReader {
public:
    enum class State { NeedMore, Complete, Malformed, TooLarge };

    static constexpr std::size_t kMaxHeaderBytes = 16 * 1024;
    static constexpr std::size_t kMaxChunkLineBytes = 1024;

    explicit HttpResponseReader(std::size_t maxBody) : maxBody_(maxBody) {}

    State Feed(std::span<const std::uint8_t> bytes);
    // The peer closed the connection.
    State Finish();

    State Current() const { return state_; }
    int StatusCode() const { return status_; }
    const std::string& Body() const { return body_; }

private:
    enum class Framing { Length, Chunked, UntilClose };
    enum class ChunkPart { SizeLine, Data, DataEnd, Trailer };

    State ParseHead();
    State FeedBody(std::span<const std::uint8_t> bytes);
    State FeedChunked(std::span<const std::uint8_t> bytes);
    State Append(std::span<const std::uint8_t> bytes);

    std::size_t maxBody_;
    State state_ = State::NeedMore;
    bool headDone_ = false;
    std::string head_;
    int status_ = 0;
    Framing framing_ = Framing::UntilClose;
    std::uint64_t remaining_ = 0;  // body bytes (Length) or chunk bytes (Chunked) still to come
    ChunkPart chunkPart_ = ChunkPart::SizeLine;
    std::string line_;
    std::string body_;
};

struct HttpLimits {
    std::size_t maxBody = 1024 * 1024;
    std::chrono::milliseconds connectTimeout{2000};
    std::chrono::milliseconds totalTime{4000};  // from the first connection attempt to the last byte
};

// Fetches `url`; the body of a 200 answer comes back in `body`. Gives up with an error when a limit is
// reached, and soon after `stopping` turns true.
Common::Error HttpGet(const HttpUrl& url, const HttpLimits& limits, const std::function<bool()>& stopping,
                      std::string& body);

}  // namespace LocationDetector
