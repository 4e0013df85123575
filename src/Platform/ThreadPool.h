#pragma once

#include "Platform/DispatchQueue.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace tarvik {

// A fixed set of worker threads behind a DispatchQueue. Destroying the pool runs what was
// queued, then joins the workers.
class ThreadPool : public DispatchQueue {
  public:
    explicit ThreadPool(unsigned threadCount);
    ~ThreadPool() override;

    void async(std::function<void()> task) override;
    // Blocks until the queue is empty and no task is running.
    void waitUntilIdle();
    // The same, giving up after `timeout`; true when the pool is idle.
    bool waitUntilIdleFor(std::chrono::milliseconds timeout);
    // How many tasks were ever queued (see RunLoop::workSubmitted).
    std::uint64_t workSubmitted();

  private:
    void work();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> tasks_;
    unsigned running_ = 0;
    std::uint64_t submitted_ = 0;
    bool stopping_ = false;
    std::vector<std::thread> workers_;
};

}  // namespace tarvik
