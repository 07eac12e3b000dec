// The SSDP search request and the reader of its answers.
#include "home/location_detector/impl/ssdp.h"

#include <algorithm>

namespace LocationDetector {
namespace {

bool SameIgnoringCase(std::string_view a, std::string_view b) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [&](char x, char y) { return lower(x) == lower(y); });
}

std::string_view Trim(std::string_view text) {
    size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    size_t end = text.find_last_not_of(" \t\r");
    return text.substr(begin, end - begin + 1);
}

// Next line of `text` from `at`, without its CRLF (or bare LF, which some devices send).
std::optional<std::string_view> NextLine(std::string_view text, size_t& at) {
    if (at >= text.size()) return std::nullopt;
    size_t end = text.find('\n', at);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(at, end - at);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    at = end + 1;
    return line;
}

// "HTTP/1.1 200 OK"; the reason phrase is free text (and may be missing) and is not looked at.
bool IsSuccessStatus(std::string_view line) {
    if (line.size() < 12 || !line.starts_with("HTTP/1.") || line.substr(8, 4) != " 200") return false;
    return line.size() == 12 || line[12] == ' ';
}

}  // namespace

std::string EncodeSearchRequest(int mxSeconds) {
    return "M-SEARCH * HTTP/1.1\r\n"
           "HOST: 239.255.255.250:1900\r\n"
           "MAN: \"ssdp:discover\"\r\n"
           "MX: " + std::to_string(std::clamp(mxSeconds, 1, 5)) + "\r\n"
           "ST: upnp:rootdevice\r\n\r\n";
}

std::optional<UpnpDevice> ParseSearchAnswer(std::string_view datagram) {
    size_t at = 0;
    std::optional<std::string_view> status = NextLine(datagram, at);
    if (!status || !IsSuccessStatus(*status)) return std::nullopt;
    UpnpDevice device;
    while (std::optional<std::string_view> line = NextLine(datagram, at)) {
        if (line->empty()) break;
        size_t colon = line->find(':');
        if (colon == std::string_view::npos) continue;
        std::string_view name = Trim(line->substr(0, colon));
        std::string_view value = Trim(line->substr(colon + 1));
        if (SameIgnoringCase(name, "LOCATION")) device.location = value;
        else if (SameIgnoringCase(name, "USN")) device.usn = value;
    }
    if (device.location.empty() || device.location.size() > kMaxLocationBytes) return std::nullopt;
    return device;
}

}  // namespace LocationDetector
