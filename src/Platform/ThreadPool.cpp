#include "Platform/ThreadPool.h"

#include <algorithm>

namespace tarvik {

ThreadPool::ThreadPool(unsigned threadCount) {
    for (unsigned i = 0; i < std::max(1u, threadCount); ++i) {
        workers_.emplace_back([this] { work(); });
    }
}

ThreadPool::~ThreadPool() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    for (std::thread& worker : workers_) {
        worker.join();
    }
}

void ThreadPool::async(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        ++submitted_;
    }
    changed_.notify_all();
}

void ThreadPool::waitUntilIdle() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return tasks_.empty() && running_ == 0; });
}

bool ThreadPool::waitUntilIdleFor(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this] { return tasks_.empty() && running_ == 0; });
}

std::uint64_t ThreadPool::workSubmitted() {
    std::lock_guard lock(mutex_);
    return submitted_;
}

void ThreadPool::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
        if (tasks_.empty()) {
            return;  // stopping, and nothing left to run
        }
        std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        ++running_;
        lock.unlock();
        task();
        lock.lock();
        --running_;
        changed_.notify_all();
    }
}

}  // namespace tarvik
