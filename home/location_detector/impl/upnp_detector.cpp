// UPnP NAS detection: settings, classification of description documents, and the search loop.
#include "home/location_detector/impl/upnp_detector.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <optional>
#include <set>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "home/location_detector/impl/http_get.h"
#include "home/location_detector/impl/worker_pool.h"

namespace LocationDetector {
namespace {

constexpr std::array<std::string_view, 5> kUrns = {
    "urn:schemas-upnp-org:device:MediaServer:1",
    "urn:schemas-upnp-org:device:NAS:1",
    "urn:schemas-upnp-org:device:WiNAS:1",
    "urn:schemas-lenovo-com:device:sohodevice:1",
    "urn:www-dlink-com:device:NetworkAttachedStorage:1",
};

constexpr std::array<std::string_view, 20> kVendors = {
    "SYNOLOGY", "QNAP",  "WD",        "WESTERN DIGITAL", "SEAGATE", "NETGEAR", "DROBO",
    "BUFFALO",  "D-LINK", "LENOVO",   "IOMEGA",          "FRITZBOX", "FRITZ!BOX", "ZYXEL",
    "FREENAS",  "AIRPORT", "LACIE",   "ASUS",            "NAS4FREE", "QSAN",
};

// Each round of searching asks devices to answer within this time (the request's MX), at least a second.
constexpr std::chrono::milliseconds kDiscoverDelay{2000};
constexpr std::chrono::milliseconds kMinDiscoverDelay{1000};
constexpr std::chrono::milliseconds kRetryPause{3000};
constexpr std::chrono::milliseconds kRoundPause{500};
// Different answers (USN and LOCATION) one search keeps track of, whatever the network sends.
constexpr std::size_t kMaxAnswers = 4096;
constexpr std::size_t kMaxDisplayBytes = 256;

std::string ReadElement(std::string_view document, std::string_view name) {
    // The opening tag is matched without its '>' so that attributes may follow the name.
    size_t open = document.find("<" + std::string(name));
    if (open == std::string_view::npos) return {};
    size_t valueStart = document.find('>', open);
    if (valueStart == std::string_view::npos) return {};
    ++valueStart;
    size_t close = document.find("</" + std::string(name) + ">", valueStart);
    if (close == std::string_view::npos) return {};
    return std::string(document.substr(valueStart, close - valueStart));
}

std::string Upper(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

bool HasVendorName(const std::string& text) {
    std::string upper = Upper(text);
    return std::any_of(kVendors.begin(), kVendors.end(),
                       [&](std::string_view vendor) { return upper.find(vendor) != std::string::npos; });
}

void AppendUtf8(std::string& out, std::uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// "&amp;" and friends, "&#233;", "&#xE9;"; anything else stays as written.
std::optional<std::uint32_t> Entity(std::string_view name) {
    static constexpr std::pair<std::string_view, std::uint32_t> kNamed[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& [entity, value] : kNamed) {
        if (name == entity) return value;
    }
    if (name.size() < 2 || name[0] != '#') return std::nullopt;
    bool hex = name[1] == 'x' || name[1] == 'X';
    std::string_view digits = name.substr(hex ? 2 : 1);
    if (digits.empty() || digits.size() > 8) return std::nullopt;
    std::uint32_t value = 0;
    for (char c : digits) {
        int digit = c >= '0' && c <= '9' ? c - '0' : hex && c >= 'a' && c <= 'f' ? c - 'a' + 10 : hex && c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (digit < 0) return std::nullopt;
        value = value * (hex ? 16 : 10) + static_cast<std::uint32_t>(digit);
    }
    if (value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return std::nullopt;
    return value;
}

std::string Trimmed(std::string_view text) {
    size_t begin = text.find_first_not_of(" \t\r\n");
    size_t end = text.find_last_not_of(" \t\r\n");
    return begin == std::string_view::npos ? std::string() : std::string(text.substr(begin, end - begin + 1));
}

// Keeps a log line readable when a device sends a huge value.
std::string ForLog(const std::string& value) { return XmlTextForDisplay(value, kMaxDisplayBytes); }

Finding MakeFinding(const std::string& url, const DeviceDescription& device, std::string document) {
    std::optional<HttpUrl> parsed = ParseHttpUrl(url);
    std::string host = parsed ? FormatIpv4(parsed->address) : url;
    std::string name = XmlTextForDisplay(Trimmed(device.friendlyName), kMaxDisplayBytes);
    if (name.empty()) name = XmlTextForDisplay(Trimmed(device.manufacturer), kMaxDisplayBytes);
    if (name.empty()) name = host;

    Finding finding;
    finding.location.name = Common::Utf8ToWide(name);
    finding.location.hostname = Common::Utf8ToWide(host);
    finding.location.path = L"\\\\" + finding.location.hostname;
    finding.location.raw = std::move(document);
    if (parsed) finding.addresses.push_back(host);
    return finding;
}

struct Settings {
    bool includeLinkLocal;
    std::int32_t urnDeviceType;
    std::size_t maxDevices;
};

// What the downloads of one search share.
struct Examinations {
    std::mutex lock;
    std::size_t rawUsed = 0;  // of kMaxRawBytes
    bool rawExhausted = false;
    std::size_t skipped = 0;  // devices whose download had not started by the cap
};

// Fetches the description of one answering device and reports the device when it is a NAS.
void Examine(SearchContext& context, const Settings& settings, UpnpNetwork& network, const std::string& location,
             Examinations& shared) {
    std::string document;
    Common::Error error = network.Download(location, std::min(Clock::now() + UpnpDetector::kDownloadTime, context.Cap()),
                                           [&] { return context.Stopping(); }, document);
    if (error.Failed()) {
        Common::Log::WriteError(Common::Log::kWarning, "Cannot read the description of " + location + ": ", error);
        return;
    }
    DeviceDescription description;
    if (!UpnpDetector::IsNasDevice(description, document, settings.urnDeviceType)) return;
    Finding finding = MakeFinding(location, description, std::move(document));
    {
        std::lock_guard guard(shared.lock);
        if (finding.location.raw.size() > UpnpDetector::kMaxRawBytes - shared.rawUsed) {
            if (!shared.rawExhausted) {
                Common::Log::Warning("The descriptions of upnp devices exceed " + std::to_string(UpnpDetector::kMaxRawBytes) +
                                     " bytes; further devices are reported without theirs.");
                shared.rawExhausted = true;
            }
            finding.location.raw.clear();
        }
        shared.rawUsed += finding.location.raw.size();
    }
    context.Report(finding);
}

// The answers of one search: every device logged once, every description fetched once, up to the limit,
// each download on the pool so that a slow device holds up no other.
class Answers {
public:
    Answers(SearchContext& context, const Settings& settings, UpnpNetwork& network)
        : context_(context), settings_(settings), network_(network) {}

    void Take(const UpnpDevice& device) {
        std::string key = device.usn + "\n" + device.location;
        if (answers_.count(key)) return;
        if (answers_.size() >= kMaxAnswers) {
            if (!full_) Common::Log::Warning("More than " + std::to_string(kMaxAnswers) + " different upnp answers; further ones are ignored.");
            full_ = true;
            return;
        }
        answers_.insert(std::move(key));
        Common::Log::Info("Discovered upnp device: " + device.location);
        if (!locations_.insert(device.location).second || posted_ >= settings_.maxDevices) return;
        ++posted_;
        pool_->Post([this, location = device.location] {
            if (context_.Stopping()) {
                std::lock_guard guard(shared_.lock);
                ++shared_.skipped;
                return;
            }
            Common::Error error = Common::CatchErrors([&] { Examine(context_, settings_, network_, location, shared_); });
            if (error.Failed()) Common::Log::WriteError(Common::Log::kWarning, "Cannot examine the upnp device at " + location + ": ", error);
        });
    }

    // Waits for the downloads, which end by the cap, and logs the devices left unexamined.
    void Finish() {
        pool_.reset();
        std::size_t left = locations_.size() - posted_ + shared_.skipped;
        if (left > 0) {
            Common::Log::Warning(std::to_string(left) + " answering upnp devices were not examined: a search examines at most " +
                                 std::to_string(settings_.maxDevices) + " within its time.");
        }
    }

private:
    SearchContext& context_;
    const Settings& settings_;
    UpnpNetwork& network_;
    Examinations shared_;
    std::set<std::string> answers_;    // USN and LOCATION
    std::set<std::string> locations_;  // of the answers taken
    std::size_t posted_ = 0;
    bool full_ = false;
    std::optional<WorkerPool> pool_{std::in_place, UpnpDetector::kDownloadThreads};
};

void Search(SearchContext& context, const Settings& settings, UpnpNetwork& network) {
    std::vector<Net::NetworkInterface> interfaces;
    std::unique_ptr<SsdpSearch> search;
    Common::Error error = Common::CatchErrors([&] {
        interfaces = network.Interfaces();
        std::erase_if(interfaces, [&](const Net::NetworkInterface& where) {
            return !settings.includeLinkLocal && IsLinkLocal(where.address);
        });
        if (interfaces.empty()) return;
        std::vector<Ipv4Address> addresses;
        for (const Net::NetworkInterface& where : interfaces) addresses.push_back(where.address);
        search = network.OpenSearch(addresses);
    });
    if (error.Failed()) {
        Common::Log::WriteError(Common::Log::kError, "upnpOpenDiscover failed: ", error);
        return;
    }
    if (interfaces.empty()) {
        Common::Log::Info("No network interface to search for upnp devices.");
        return;
    }

    Answers answers(context, settings, network);
    std::set<std::size_t> openFailed;
    // Searches are repeated for the whole search time: SSDP travels over UDP and answers get lost.
    // Answers are read all along, so a late one still counts; a device that keeps answering moves no
    // deadline, since every wait below ends at a time fixed before it starts.
    while (context.Searching()) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(context.SearchEnd() - Clock::now());
        auto delay = std::clamp(left, kMinDiscoverDelay, kDiscoverDelay);
        std::vector<SsdpSearch::Status> statuses = search->Send(static_cast<int>(delay.count() / 1000));
        bool sendFailed = false;
        for (std::size_t i = 0; i < statuses.size(); ++i) {
            if (statuses[i] == SsdpSearch::Status::SendFailed) {
                Common::Log::Warning("Cannot send MSearch request. Retry after several seconds.");
                sendFailed = true;
            } else if (statuses[i] == SsdpSearch::Status::OpenFailed && openFailed.insert(i).second) {
                Common::Log::Error("upnpOpenDiscover failed");
            }
        }
        const Clock::time_point roundEnd = std::min(Clock::now() + (sendFailed ? kRetryPause : delay + kRoundPause), context.SearchEnd());
        while (context.Searching() && Clock::now() < roundEnd) {
            for (const UpnpDevice& device : search->Receive(roundEnd, [&] { return context.Stopping(); })) answers.Take(device);
        }
    }
    answers.Finish();
}

}  // namespace

std::string XmlTextForDisplay(std::string_view text, std::size_t maxBytes) {
    std::string out;
    for (size_t i = 0; i < text.size() && out.size() < maxBytes;) {
        if (text[i] == '&') {
            size_t semicolon = text.find(';', i);
            if (semicolon != std::string_view::npos && semicolon - i <= 12) {
                if (auto value = Entity(text.substr(i + 1, semicolon - i - 1))) {
                    AppendUtf8(out, *value);
                    i = semicolon + 1;
                    continue;
                }
            }
        }
        out += text[i++];
    }
    if (out.size() > maxBytes) out.resize(maxBytes);
    // Never end inside a UTF-8 sequence: drop continuation bytes and then their lead byte.
    if (out.size() == maxBytes) {
        size_t end = out.size();
        while (end > 0 && (static_cast<unsigned char>(out[end - 1]) & 0xC0) == 0x80) --end;
        if (end > 0 && static_cast<unsigned char>(out[end - 1]) >= 0xC0) {
            auto lead = static_cast<unsigned char>(out[end - 1]);
            size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
            if (out.size() - (end - 1) < length) out.resize(end - 1);
        }
    }
    return out;
}

UpnpDetector::UpnpDetector(bool includeLinkLocal, std::int32_t discoverTimeout, std::int32_t urnDeviceType,
                           std::shared_ptr<UpnpNetwork> network, std::size_t maxDevices)
    : ThreadedDetector(SearchTiming{}),
      includeLinkLocal_(includeLinkLocal),
      discoverTimeout_(discoverTimeout),
      urnDeviceType_(urnDeviceType),
      maxDevices_(maxDevices),
      network_(network ? std::move(network) : MakeUpnpNetwork()) {
    if (Common::Error error = network_->StartError(); error.Failed())
        Common::Log::WriteError(Common::Log::kError, "Cannot start the Windows socket layer: ", error);

    if (discoverTimeout_ == 0) {
        Common::Log::Warning("Warning! Discover time out setted to zero. Omitting. Falling back to defaults.");
        discoverTimeout_ = kDefaultDiscoverTimeout;
    }
    if (urnDeviceType_ < -1 || urnDeviceType_ > 4) {
        Common::Log::Warning("Warning! Ivalid UrnDeviceType setted. Ignoring. Failing back to all types.");
        urnDeviceType_ = 0;
    }
    if (urnDeviceType_ == 0) {
        Common::Log::Warning("Warning! Ommit urn is setted. All upnp devices will be detected as NAS.");
    } else if (urnDeviceType_ == -1) {
        Common::Log::Info("Using default upnp detection algorithm.");
    } else {
        // The match uses the URN of index type - 1 (IsNasDevice); this line names index type.
        Common::Log::Warning("Warning! upnp urn detection is forced by: " + std::string(kUrns[static_cast<size_t>(urnDeviceType_)]));
    }
    // A negative time-out has no meaning as a duration; such a search ends at once.
    SetTiming({std::chrono::seconds(std::max(discoverTimeout_, 0)), kDownloadTime});
}

bool UpnpDetector::IsNasDevice(DeviceDescription& device, std::string_view document, std::int32_t urnDeviceType) {
    device.deviceType = ReadElement(document, "deviceType");
    device.friendlyName = ReadElement(document, "friendlyName");
    device.manufacturer = ReadElement(document, "manufacturer");
    device.category = ReadElement(document, "pnpx:X_deviceCategory");

    if (urnDeviceType < -1 || urnDeviceType > 4) urnDeviceType = 0;
    if (device.category.find("Storage.NAS") != std::string::npos || urnDeviceType == 0) return true;

    if (urnDeviceType == -1) {
        if (std::find(kUrns.begin() + 1, kUrns.end(), device.deviceType) != kUrns.end()) return true;
        if (device.deviceType == kUrns[0] && (HasVendorName(device.friendlyName) || HasVendorName(device.manufacturer))) {
            Common::Log::Debug("+Found NAS device by vendor: " + ForLog(device.friendlyName) + ", " + ForLog(device.manufacturer));
            return true;
        }
        Common::Log::Debug("-Found not a NAS device: " + ForLog(device.friendlyName) + " Urn = " + ForLog(device.deviceType) +
                           " Vendor=  " + ForLog(device.manufacturer));
        return false;
    }
    // The forced type names the URN one place further down the table (type 1 matches media servers).
    return device.deviceType == kUrns[static_cast<size_t>(urnDeviceType - 1)];
}

ThreadedDetector::SearchBody UpnpDetector::MakeSearch() {
    return [network = network_, settings = Settings{includeLinkLocal_, urnDeviceType_, maxDevices_}](SearchContext& context) {
        if (network->StartError().Failed()) return;
        Search(context, settings, *network);
    };
}

}  // namespace LocationDetector
