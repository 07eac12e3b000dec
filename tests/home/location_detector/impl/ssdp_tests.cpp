// The reader of SSDP search answers: what counts as an answer and what is taken from it.
#include "home/location_detector/impl/ssdp.h"

#include <gtest/gtest.h>

namespace {

using namespace LocationDetector;

TEST(SsdpTest, ReadsTheDeviceOfAnAnswer) {
    const std::string location = "http://10.0.0.2:8200/rootDesc.xml";
    const struct {
        const char* what;
        std::string datagram;
        std::optional<std::string> location;
        std::string usn = {};
    } cases[] = {
        {"as minidlna answers", "HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=1810\r\nDATE: Mon, 23 Nov 2026 10:00:00 GMT\r\n"
                                "ST: upnp:rootdevice\r\nUSN: uuid:4d696e69::upnp:rootdevice\r\nEXT:\r\n"
                                "SERVER: Debian DLNADOC/1.50 UPnP/1.0 MiniDLNA/1.3.0\r\nLOCATION: " + location + "\r\nContent-Length: 0\r\n\r\n",
         location, "uuid:4d696e69::upnp:rootdevice"},
        {"header names in any case, bare line feeds, blanks around values",
         "HTTP/1.0 200\nlocation:   " + location + " \nusn:uuid:a\n\n", location, "uuid:a"},
        {"headers after the blank line are body", "HTTP/1.1 200 OK\r\n\r\nLOCATION: " + location + "\r\n", std::nullopt},
        {"no LOCATION", "HTTP/1.1 200 OK\r\nST: upnp:rootdevice\r\n\r\n", std::nullopt},
        {"an empty LOCATION", "HTTP/1.1 200 OK\r\nLOCATION: \r\n\r\n", std::nullopt},
        {"a LOCATION longer than any real one", "HTTP/1.1 200 OK\r\nLOCATION: http://" + std::string(kMaxLocationBytes, 'x') + "\r\n\r\n", std::nullopt},
        {"another status", "HTTP/1.1 404 Not Found\r\nLOCATION: " + location + "\r\n\r\n", std::nullopt},
        {"a status that only starts with 200", "HTTP/1.1 2000 OK\r\nLOCATION: " + location + "\r\n\r\n", std::nullopt},
        {"another device's search", "M-SEARCH * HTTP/1.1\r\nLOCATION: " + location + "\r\n\r\n", std::nullopt},
        {"an announcement", "NOTIFY * HTTP/1.1\r\nLOCATION: " + location + "\r\nNTS: ssdp:alive\r\n\r\n", std::nullopt},
        {"garbage", std::string("\0\xff garbage", 10), std::nullopt},
    };
    for (const auto& c : cases) {
        std::optional<UpnpDevice> device = ParseSearchAnswer(c.datagram);
        ASSERT_EQ(device.has_value(), c.location.has_value()) << c.what;
        if (!device) continue;
        EXPECT_EQ(device->location, *c.location) << c.what;
        EXPECT_EQ(device->usn, c.usn) << c.what;
    }
}

}  // namespace
