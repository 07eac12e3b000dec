// The description download's URL reader and response reader: what is taken, what is refused, and
// the size limit, with responses fed in pieces as a network delivers them.
#include "home/location_detector/impl/http_get.h"

#include <gtest/gtest.h>

namespace {

using namespace LocationDetector;
using State = HttpResponseReader::State;

TEST(HttpUrlTest, TakesHttpUrlsWithAnIpv4Host) {
    auto url = ParseHttpUrl("http://192.168.1.20:5000/desc.xml?x=1#top");
    ASSERT_TRUE(url);
    EXPECT_EQ(FormatIpv4(url->address), "192.168.1.20");
    EXPECT_EQ(url->port, 5000);
    EXPECT_EQ(url->host, "192.168.1.20:5000");
    EXPECT_EQ(url->target, "/desc.xml?x=1");

    url = ParseHttpUrl("HTTP://10.0.0.1");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->port, 80);
    EXPECT_EQ(url->target, "/");
    url = ParseHttpUrl("http://10.0.0.1:?a");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->port, 80);
    EXPECT_EQ(url->target, "/?a");
}

TEST(HttpUrlTest, RefusesWhatItCannotFetchSafely) {
    for (const char* url : {"https://10.0.0.1/", "ftp://10.0.0.1/", "http://nas.local/desc.xml", "http://[fe80::1]/",
                            "http://user@10.0.0.1/", "http://10.0.0.1:0/", "http://10.0.0.1:65536/", "http://10.0.0.1:80x/",
                            "http://10.0.0.256/", "http://10.0.0/", "http://10.0.0.1 /", "http://10.0.0.1/a\r\nX: y",
                            "http://10.0.0.1/\xC3\xA9", "http://", ""}) {
        EXPECT_FALSE(ParseHttpUrl(url)) << url;
    }
    EXPECT_FALSE(ParseHttpUrl("http://10.0.0.1/" + std::string(3000, 'a')));
}

// Feeds `response` in pieces of `piece` bytes; then tells of the closed connection when `close`.
State FeedAll(HttpResponseReader& reader, std::string_view response, size_t piece, bool close) {
    State state = State::NeedMore;
    for (size_t i = 0; i < response.size(); i += piece) {
        std::string_view part = response.substr(i, piece);
        state = reader.Feed({reinterpret_cast<const std::uint8_t*>(part.data()), part.size()});
    }
    return close ? reader.Finish() : state;
}

TEST(HttpResponseTest, BodiesByLengthChunksOrConnectionEnd) {
    struct Case {
        const char* what;
        std::string response;
        bool close;
        std::string body;
    };
    const Case cases[] = {
        {"content length", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Type: text/xml\r\n\r\n<a/>\nextra", false, "<a/>\n"},
        {"header names in any case, LF line ends", "HTTP/1.0 200 OK\ncontent-length:3\n\nabc", false, "abc"},
        {"chunked with extensions and trailers",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4;x=y\r\n<roo\r\nA\r\nt>hello</r\r\n0\r\nX-T: 1\r\n\r\n", false,
         "<root>hello</r"},
        {"chunked wins over a length", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\nTransfer-Encoding: gzip, chunked\r\n\r\n2\r\nok\r\n0\r\n\r\n",
         false, "ok"},
        {"until the connection ends", "HTTP/1.1 200 OK\r\nServer: x\r\n\r\n<root/>", true, "<root/>"},
        {"an empty body by length", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", false, ""},
    };
    for (const Case& c : cases) {
        for (size_t piece : {size_t(1), size_t(7), c.response.size()}) {
            HttpResponseReader reader(1024);
            EXPECT_EQ(FeedAll(reader, c.response, piece, c.close), State::Complete) << c.what << " / " << piece;
            EXPECT_EQ(reader.StatusCode(), 200) << c.what;
            EXPECT_EQ(reader.Body(), c.body) << c.what << " / " << piece;
        }
    }
}

TEST(HttpResponseTest, OtherStatusesEndWithTheHead) {
    HttpResponseReader reader(1024);
    EXPECT_EQ(FeedAll(reader, "HTTP/1.1 404 Not Found\r\nContent-Length: 100000\r\n\r\n", 5, false), State::Complete);
    EXPECT_EQ(reader.StatusCode(), 404);
}

TEST(HttpResponseTest, BodiesOverTheLimitAreRefused) {
    const std::pair<const char*, std::string> cases[] = {
        {"announced length", "HTTP/1.1 200 OK\r\nContent-Length: 1025\r\n\r\n"},
        {"length beyond any number", "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999\r\n\r\n"},
        {"chunk sizes adding up", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n200\r\n" + std::string(512, 'a') +
                                      "\r\n201\r\n"},
        {"until the connection ends", "HTTP/1.1 200 OK\r\n\r\n" + std::string(1025, 'a')},
    };
    for (const auto& [what, response] : cases) {
        HttpResponseReader reader(1024);
        EXPECT_EQ(FeedAll(reader, response, 100, false), State::TooLarge) << what;
        EXPECT_LE(reader.Body().size(), 1024u) << what;
    }
    HttpResponseReader exact(1024);
    EXPECT_EQ(FeedAll(exact, "HTTP/1.1 200 OK\r\n\r\n" + std::string(1024, 'a'), 100, true), State::Complete);
}

TEST(HttpResponseTest, MalformedAndCutShortResponsesAreRefused) {
    const std::pair<const char*, std::string> cases[] = {
        {"not HTTP", "SSH-2.0-OpenSSH\r\n\r\n"},
        {"status not a number", "HTTP/1.1 2x0 OK\r\n\r\n"},
        {"conflicting lengths", "HTTP/1.1 200 OK\r\nContent-Length: 3\r\nContent-Length: 4\r\n\r\nabcd"},
        {"length not a number", "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n"},
        {"bad chunk size", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"},
        {"no line end after chunk data", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nokX\r\n"},
        {"endless chunk size line", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + std::string(2000, '0')},
        {"endless trailers", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n" + std::string(20000, 'x') + "\r\n"},
        {"endless head", "HTTP/1.1 200 OK\r\nX: " + std::string(20000, 'x')},
    };
    for (const auto& [what, response] : cases) {
        HttpResponseReader reader(1 << 20);
        EXPECT_EQ(FeedAll(reader, response, 64, false), State::Malformed) << what;
    }
    // The connection ends before the announced length, before the last chunk, or inside the head.
    for (std::string response : {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc",
                                 "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nok\r\n", "HTTP/1.1 200 OK\r\n"}) {
        HttpResponseReader reader(1024);
        EXPECT_EQ(FeedAll(reader, response, 3, true), State::Malformed) << response;
    }
}

}  // namespace
