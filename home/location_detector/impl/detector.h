// The location detectors' interface, and the base of the detectors that search on a thread of their own
// with a search time and a hard cap.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "home/location_detector/impl/location.h"

namespace LocationDetector {

using Clock = std::chrono::steady_clock;

// Told of every device as it is found, on one of the detector's threads (several may report at once).
class Observer {
public:
    virtual ~Observer() = default;
    virtual void OnFound(const Finding& finding) = 0;
};

class Detector {
public:
    virtual ~Detector() = default;
    // Observers are added before Start.
    virtual void AddObserver(std::shared_ptr<Observer> observer) = 0;
    // Starts the search in the background and returns at once; a second call does nothing.
    virtual void Start() = 0;
    // The locations found so far, in the order found. Waits at most for what remains of the search
    // time, and not at all when the search has ended or was never started.
    virtual Locations GetLocations() = 0;
    // Asks the search to end early; returns at once.
    virtual void Stop() = 0;
};

// How long a search looks for devices, and how much longer it may take to finish what it started
// (downloads); the two together are the hard cap on the whole search.
struct SearchTiming {
    std::chrono::milliseconds searchTime{6000};
    std::chrono::milliseconds grace{4000};
};

// What a search body sees of its run; shared between the detector and its thread.
class SearchContext {
public:
    SearchContext() = default;

    // A stop was asked for, or the cap has passed: the body must return.
    bool Stopping() const;
    // Still in the search time and not stopping: the body may start new searches.
    bool Searching() const;
    Clock::time_point SearchEnd() const { return searchEnd_; }
    Clock::time_point Cap() const { return cap_; }
    // Waits until `until`, or less when a stop comes; false when stopping.
    bool SleepUntil(Clock::time_point until);
    void Report(const Finding& finding);

private:
    friend class ThreadedDetector;

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::atomic<bool> stop_{false};
    bool started_ = false;
    bool done_ = false;
    Clock::time_point searchEnd_{};
    Clock::time_point cap_{};
    Locations found_;
    std::vector<std::shared_ptr<Observer>> observers_;
};

class ThreadedDetector : public Detector {
public:
    // Stops the search and waits for its thread to end. Every wait of a search body ends by the cap at
    // the latest, so this never waits past it for long; a thread left running could log after logging
    // is shut down, so none is.
    ~ThreadedDetector() override;

    void AddObserver(std::shared_ptr<Observer> observer) final;
    void Start() final;
    Locations GetLocations() final;
    void Stop() final;

protected:
    using SearchBody = std::function<void(SearchContext& context)>;

    explicit ThreadedDetector(SearchTiming timing);
    // For a detector that knows its search time only once its settings are checked; before Start.
    void SetTiming(SearchTiming timing) { timing_ = timing; }
    // The search itself. It runs on the detector's thread, which is joined only after the derived
    // detector's members are gone, so it must own (by value or shared pointer) whatever it uses. It must
    // never block past the cap: every wait is bounded by SearchContext::Cap or a shorter time.
    virtual SearchBody MakeSearch() = 0;

private:
    SearchTiming timing_;
    std::shared_ptr<SearchContext> context_ = std::make_shared<SearchContext>();
    std::thread thread_;
};

}  // namespace LocationDetector
