#include "Platform/OperationQueue.h"

#include <memory>

namespace tarvik {

OperationQueue::OperationQueue() : worker_([this] { work(); }) {}

OperationQueue::~OperationQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        pending_.clear();
    }
    changed_.notify_all();
    worker_.join();
}

void OperationQueue::addOperation(Operation operation) {
    {
        std::lock_guard lock(mutex_);
        pending_.push_back(std::move(operation));
        ++submitted_;
    }
    changed_.notify_all();
}

void OperationQueue::cancelAllOperations() {
    std::lock_guard lock(mutex_);
    pending_.clear();
    changed_.notify_all();
}

std::size_t OperationQueue::operationCount() const {
    std::lock_guard lock(mutex_);
    return pending_.size() + (running_ ? 1 : 0);
}

std::uint64_t OperationQueue::workSubmitted() const {
    std::lock_guard lock(mutex_);
    return submitted_;
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return pending_.empty() && !running_; });
}

void OperationQueue::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || (!running_ && !pending_.empty()); });
        if (stopping_) {
            // Let a running operation call finish before the queue goes away.
            changed_.wait(lock, [this] { return !running_; });
            return;
        }
        Operation operation = std::move(pending_.front());
        pending_.pop_front();
        running_ = true;
        lock.unlock();
        // `finish` may be called once, from any thread, even after this call returned.
        auto finished = std::make_shared<std::once_flag>();
        operation([this, finished] {
            std::call_once(*finished, [this] {
                // Notified under the lock: once a waiter sees the queue idle it may destroy the
                // queue, so nothing here may touch it after the lock is released.
                std::lock_guard guard(mutex_);
                running_ = false;
                changed_.notify_all();
            });
        });
        lock.lock();
    }
}

}  // namespace tarvik
