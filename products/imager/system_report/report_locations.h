// The locations item: "locations.txt", one block for every network storage device found on the local
// network. Its discovery starts when the item is made, so that it runs while the other items work.
#pragma once

#include <memory>
#include <ostream>

#include "home/location_detector/impl/detector.h"
#include "products/imager/system_report/report.h"

namespace SystemReport {

// How long the run's detectors look for devices; the list is taken when the item runs, which is never
// before this time has passed since the item was made.
inline constexpr int kLocationSearchSeconds = 6;

// Writes one block per location: "Name: ...", "Path: ...", "Hostname: ..." in UTF-8, then the raw text
// after "Raw:" when there is one, then an empty line.
void WriteLocationBlocks(std::ostream& out, const LocationDetector::Locations& locations);

class ReportLocations final : public Report {
public:
    // Starts `detector` at once.
    explicit ReportLocations(std::shared_ptr<LocationDetector::Detector> detector);

    Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) override;
    void Stop() override;

private:
    std::shared_ptr<LocationDetector::Detector> detector_;
};

// The item with the run's detector (UPnP and multicast DNS).
std::shared_ptr<ReportLocations> MakeReportLocations();

}  // namespace SystemReport
