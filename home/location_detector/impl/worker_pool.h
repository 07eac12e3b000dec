// A few threads that run posted tasks side by side, so that one slow task holds up no other.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace LocationDetector {

class WorkerPool {
public:
    // Threads start as tasks arrive, up to `maxThreads`.
    explicit WorkerPool(std::size_t maxThreads);
    // Runs every task posted, then joins the threads; tasks must bound their own time.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    // When no thread can be started at all, the task runs on the caller's thread.
    void Post(std::function<void()> task);

private:
    void Work();

    std::size_t maxThreads_;
    std::mutex lock_;
    std::condition_variable posted_;
    std::deque<std::function<void()>> tasks_;
    std::size_t idle_ = 0;
    bool closing_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace LocationDetector
