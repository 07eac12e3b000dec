// The locations item.
#include "products/imager/system_report/report_locations.h"

#include "core/common/localized.h"
#include "core/common/log.h"
#include "core/common/strings.h"
#include "home/location_detector/impl/composite_detector.h"
#include "products/imager/system_report/report_file.h"

namespace SystemReport {
namespace {

constexpr const wchar_t* kFileName = L"locations.txt";
constexpr const wchar_t* kTitle = L"UPnP and Bonjour Location Report";

// Common::WideToUtf8 replaces an unpaired surrogate; this item drops the whole block's text instead.
// Pairs count as one code point whatever the width of wchar_t.
bool HasUnpairedSurrogate(std::wstring_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        auto unit = static_cast<std::uint32_t>(text[i]);
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            if (i + 1 < text.size() && static_cast<std::uint32_t>(text[i + 1]) >= 0xDC00 &&
                static_cast<std::uint32_t>(text[i + 1]) <= 0xDFFF) {
                ++i;
                continue;
            }
            return true;
        }
        if (unit >= 0xDC00 && unit <= 0xDFFF) return true;
    }
    return false;
}

}  // namespace

void WriteLocationBlocks(std::ostream& out, const LocationDetector::Locations& locations) {
    for (const LocationDetector::LocationPtr& location : locations) {
        if (!location) continue;
        std::wstring text = Common::FormatPlaceholders(L"Name: {0}\r\nPath: {1}\r\nHostname: {2}\r\n",
                                                       {location->name, location->path, location->hostname});
        if (HasUnpairedSurrogate(text)) {
            Common::Log::Warning("A network location's name, path or host name is not valid text; its lines are left out.");
        } else {
            out << Common::WideToUtf8(text);
        }
        if (!location->raw.empty()) out << "\r\nRaw:\r\n" << location->raw;
        out << "\r\n\r\n";
    }
}

ReportLocations::ReportLocations(std::shared_ptr<LocationDetector::Detector> detector) : detector_(std::move(detector)) {
    detector_->Start();
}

Common::Error ReportLocations::Create(const std::filesystem::path& folder, FileEntries& entries) {
    std::filesystem::path path = folder / kFileName;
    ReportFileBuffer file;
    if (!file.Open(path)) {
        Common::Log::Error(L"Cannot create '" + path.wstring() + L"' for the " + kTitle + L".");
        return Common::Error::Make(Common::Codes::kCreateFile, Common::Localized(L"Error occurred while creating the file."));
    }
    LocationDetector::Locations locations = detector_->GetLocations();
    // What was found by now is what the report holds; the search need not go on.
    detector_->Stop();
    Common::Log::Info("Network locations found: " + std::to_string(locations.size()) + ".");
    std::ostream out(&file);
    WriteLocationBlocks(out, locations);
    // What reached the file is archived; a write failure is this item's own and does not fail the run.
    if (Common::Error written = file.Close(); written.Failed()) {
        Common::Log::WriteError(Common::Log::kError, "'" + Common::PathToUtf8(path) + "' holds only part of its text: ",
                                written);
    }
    entries.push_back({path, kFileName, Common::Localized(kTitle), nullptr, false, false});
    return {};
}

void ReportLocations::Stop() { detector_->Stop(); }

std::shared_ptr<ReportLocations> MakeReportLocations() {
    return std::make_shared<ReportLocations>(LocationDetector::MakeLocationDetector(kLocationSearchSeconds));
}

}  // namespace SystemReport
