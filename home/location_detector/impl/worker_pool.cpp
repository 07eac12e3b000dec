// The worker pool of the description downloads.
#include "home/location_detector/impl/worker_pool.h"

#include <system_error>

namespace LocationDetector {

WorkerPool::WorkerPool(std::size_t maxThreads) : maxThreads_(maxThreads) {}

WorkerPool::~WorkerPool() {
    {
        std::lock_guard guard(lock_);
        closing_ = true;
    }
    posted_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

void WorkerPool::Post(std::function<void()> task) {
    {
        std::lock_guard guard(lock_);
        tasks_.push_back(std::move(task));
        if (idle_ >= tasks_.size() || threads_.size() >= maxThreads_) {
            posted_.notify_one();
            return;
        }
        try {
            threads_.emplace_back([this] { Work(); });
            return;
        } catch (const std::system_error&) {
            if (!threads_.empty()) return;
            task = std::move(tasks_.back());
            tasks_.pop_back();
        }
    }
    task();
}

void WorkerPool::Work() {
    std::unique_lock guard(lock_);
    for (;;) {
        ++idle_;
        posted_.wait(guard, [&] { return closing_ || !tasks_.empty(); });
        --idle_;
        if (tasks_.empty()) return;
        std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        guard.unlock();
        task();
        guard.lock();
    }
}

}  // namespace LocationDetector
