#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace tarvik {

// A serial queue of asynchronous operations: an operation starts when the one before it has
// called its `finish`, however long that takes and on whatever thread it happens.
class OperationQueue {
  public:
    using Finish = std::function<void()>;
    using Operation = std::function<void(Finish finish)>;

    OperationQueue();
    // Operations not yet started are dropped; the running one is waited for.
    ~OperationQueue();

    void addOperation(Operation operation);
    // Drops the operations not yet started; the running one goes on.
    void cancelAllOperations();
    std::size_t operationCount() const;
    // How many operations were ever added (see RunLoop::workSubmitted).
    std::uint64_t workSubmitted() const;
    // Blocks until every queued operation has finished.
    void waitUntilAllOperationsAreFinished();

  private:
    void work();

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Operation> pending_;
    bool running_ = false;
    std::uint64_t submitted_ = 0;
    bool stopping_ = false;
    std::thread worker_;
};

}  // namespace tarvik
