// The threaded search of the location detectors: search time, cap, stop requests and the found list.
#include "home/location_detector/impl/detector.h"

#include <algorithm>

#include "core/common/error.h"
#include "core/common/log.h"

namespace LocationDetector {

bool SearchContext::Stopping() const { return stop_.load() || Clock::now() >= cap_; }

bool SearchContext::Searching() const { return !Stopping() && Clock::now() < searchEnd_; }

bool SearchContext::SleepUntil(Clock::time_point until) {
    std::unique_lock guard(lock_);
    changed_.wait_until(guard, std::min(until, cap_), [&] { return stop_.load(); });
    return !Stopping();
}

void SearchContext::Report(const Finding& finding) {
    std::vector<std::shared_ptr<Observer>> observers;
    {
        std::lock_guard guard(lock_);
        found_.push_back(std::make_shared<const Location>(finding.location));
        observers = observers_;
    }
    for (const auto& observer : observers) observer->OnFound(finding);
}

ThreadedDetector::ThreadedDetector(SearchTiming timing) : timing_(timing) {}

ThreadedDetector::~ThreadedDetector() {
    Stop();
    if (thread_.joinable()) thread_.join();
}

void ThreadedDetector::AddObserver(std::shared_ptr<Observer> observer) {
    std::lock_guard guard(context_->lock_);
    context_->observers_.push_back(std::move(observer));
}

void ThreadedDetector::Start() {
    {
        std::lock_guard guard(context_->lock_);
        if (context_->started_) return;
        context_->started_ = true;
        context_->searchEnd_ = Clock::now() + timing_.searchTime;
        context_->cap_ = context_->searchEnd_ + timing_.grace;
    }
    auto finish = [](SearchContext& context) {
        std::lock_guard guard(context.lock_);
        context.done_ = true;
        context.changed_.notify_all();
    };
    Common::Error error = Common::CatchErrors([&] {
        SearchBody body = MakeSearch();
        thread_ = std::thread([context = context_, body = std::move(body), finish] {
            Common::Error failure = Common::CatchErrors([&] { body(*context); });
            if (failure.Failed()) Common::Log::WriteError(Common::Log::kError, "The network location search failed: ", failure);
            finish(*context);
        });
    });
    if (error.Failed()) {
        Common::Log::WriteError(Common::Log::kError, "Cannot start the network location search: ", error);
        finish(*context_);
    }
}

Locations ThreadedDetector::GetLocations() {
    std::unique_lock guard(context_->lock_);
    if (context_->started_) {
        context_->changed_.wait_until(guard, context_->searchEnd_,
                                      [&] { return context_->done_ || context_->stop_.load(); });
    }
    return context_->found_;
}

void ThreadedDetector::Stop() {
    std::lock_guard guard(context_->lock_);
    context_->stop_ = true;
    context_->changed_.notify_all();
}

}  // namespace LocationDetector
