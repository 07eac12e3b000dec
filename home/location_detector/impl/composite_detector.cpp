// The composite detector and the joining of answers from several protocols.
#include "home/location_detector/impl/composite_detector.h"

#include <algorithm>
#include <mutex>

#include "home/location_detector/impl/bonjour_detector.h"
#include "home/location_detector/impl/upnp_detector.h"

namespace LocationDetector {
namespace {

bool SameHostName(const std::wstring& a, const std::wstring& b) {
    auto lower = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c; };
    return !a.empty() && a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [&](wchar_t x, wchar_t y) { return lower(x) == lower(y); });
}

bool IsAddress(const std::wstring& hostname) {
    std::string narrow(hostname.begin(), hostname.end());
    return std::all_of(hostname.begin(), hostname.end(), [](wchar_t c) { return c < 0x80; }) &&
           ParseIpv4(narrow).has_value();
}

bool SharesAddress(const Finding& a, const Finding& b) {
    return std::any_of(a.addresses.begin(), a.addresses.end(), [&](const std::string& address) {
        return std::find(b.addresses.begin(), b.addresses.end(), address) != b.addresses.end();
    });
}

}  // namespace

void MergeFinding(std::vector<Finding>& devices, const Finding& finding) {
    auto same = std::find_if(devices.begin(), devices.end(), [&](const Finding& device) {
        return SharesAddress(device, finding) || SameHostName(device.location.hostname, finding.location.hostname);
    });
    if (same == devices.end()) {
        devices.push_back(finding);
        return;
    }
    Location& joined = same->location;
    const Location& other = finding.location;
    if (joined.name.empty()) joined.name = other.name;
    if ((joined.hostname.empty() || IsAddress(joined.hostname)) && !other.hostname.empty() && !IsAddress(other.hostname)) {
        joined.hostname = other.hostname;
        joined.path = other.path;
    }
    if (!other.raw.empty() && joined.raw.find(other.raw) == std::string::npos)
        joined.raw = joined.raw.empty() ? other.raw : joined.raw + "\r\n\r\n" + other.raw;
    for (const std::string& address : finding.addresses) {
        if (std::find(same->addresses.begin(), same->addresses.end(), address) == same->addresses.end())
            same->addresses.push_back(address);
    }
}

// Receives every detector's answers on their threads and keeps the joined list.
class CompositeDetector::Merger final : public Observer {
public:
    void OnFound(const Finding& finding) override {
        std::vector<std::shared_ptr<Observer>> observers;
        {
            std::lock_guard guard(lock_);
            MergeFinding(devices_, finding);
            observers = observers_;
        }
        for (const auto& observer : observers) observer->OnFound(finding);
    }

    void AddObserver(std::shared_ptr<Observer> observer) {
        std::lock_guard guard(lock_);
        observers_.push_back(std::move(observer));
    }

    Locations Snapshot() {
        std::lock_guard guard(lock_);
        Locations locations;
        for (const Finding& device : devices_) locations.push_back(std::make_shared<const Location>(device.location));
        return locations;
    }

private:
    std::mutex lock_;
    std::vector<Finding> devices_;
    std::vector<std::shared_ptr<Observer>> observers_;
};

CompositeDetector::CompositeDetector(std::vector<std::shared_ptr<Detector>> detectors)
    : detectors_(std::move(detectors)), merger_(std::make_shared<Merger>()) {
    for (const auto& detector : detectors_) detector->AddObserver(merger_);
}

CompositeDetector::~CompositeDetector() { Stop(); }

void CompositeDetector::AddObserver(std::shared_ptr<Observer> observer) { merger_->AddObserver(std::move(observer)); }

void CompositeDetector::Start() {
    for (const auto& detector : detectors_) detector->Start();
}

Locations CompositeDetector::GetLocations() {
    // Each detector waits for what remains of its own search time; they run side by side, so the
    // total wait is that of the longest.
    for (const auto& detector : detectors_) detector->GetLocations();
    return merger_->Snapshot();
}

void CompositeDetector::Stop() {
    for (const auto& detector : detectors_) detector->Stop();
}

std::shared_ptr<Detector> MakeLocationDetector(int searchSeconds) {
    SearchTiming timing{std::chrono::seconds(searchSeconds), UpnpDetector::kDownloadTime};
    return std::make_shared<CompositeDetector>(std::vector<std::shared_ptr<Detector>>{
        std::make_shared<UpnpDetector>(true, searchSeconds, -1), std::make_shared<BonjourDetector>(timing, true)});
}

}  // namespace LocationDetector
