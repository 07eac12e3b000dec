// The detector that runs the UPnP and the multicast DNS detectors side by side and joins their answers
// into one location per device.
#pragma once

#include <memory>
#include <vector>

#include "home/location_detector/impl/detector.h"

namespace LocationDetector {

// Joins `finding` into `devices`: into the first device that shares an address or (ignoring case) the
// host name with it, else as a new device at the end. A joined device keeps its first name, takes a
// host name in place of a bare address (with its path), gains the other's addresses, and gains its
// raw text after an empty line unless that text is there already.
void MergeFinding(std::vector<Finding>& devices, const Finding& finding);

class CompositeDetector final : public Detector {
public:
    explicit CompositeDetector(std::vector<std::shared_ptr<Detector>> detectors);
    // Stops every detector before any of them waits for its thread, so that they end side by side.
    ~CompositeDetector() override;

    void AddObserver(std::shared_ptr<Observer> observer) override;
    void Start() override;
    Locations GetLocations() override;
    void Stop() override;

private:
    class Merger;

    std::vector<std::shared_ptr<Detector>> detectors_;
    std::shared_ptr<Merger> merger_;
};

// The run's detector: UPnP with the default algorithm and multicast DNS, each searching for
// `searchSeconds` on every interface, link-local ones included.
std::shared_ptr<Detector> MakeLocationDetector(int searchSeconds);

}  // namespace LocationDetector
