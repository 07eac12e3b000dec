// Helpers of the detector tests: an observer that a test can wait on.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "home/location_detector/impl/detector.h"

namespace LocationTests {

class WaitingObserver final : public LocationDetector::Observer {
public:
    void OnFound(const LocationDetector::Finding& finding) override {
        std::lock_guard guard(lock_);
        found_.push_back(finding);
        changed_.notify_all();
    }
    // True once `count` findings have arrived; false after `timeout`.
    bool WaitFor(size_t count, std::chrono::milliseconds timeout) {
        std::unique_lock guard(lock_);
        return changed_.wait_for(guard, timeout, [&] { return found_.size() >= count; });
    }
    std::vector<LocationDetector::Finding> Found() {
        std::lock_guard guard(lock_);
        return found_;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<LocationDetector::Finding> found_;
};

}  // namespace LocationTests
