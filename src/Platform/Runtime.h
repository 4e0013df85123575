#pragma once

#include "Platform/NotificationCenter.h"
#include "Platform/OperationQueue.h"
#include "Platform/Platform.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <typeindex>
#include <vector>

namespace tarvik {

// Owns the platform and every process-wide object of the SDK. A process has one runtime for
// its whole life; each unit test makes its own so that no state leaks between tests.
class Runtime {
  public:
    explicit Runtime(std::unique_ptr<Platform> platform);
    ~Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    // The installed runtime; the first call without one installs a runtime on the default
    // platform, which then lives until the process ends.
    static Runtime& current();
    // Installs `runtime` as current and returns the one it replaces (may be null).
    static Runtime* exchangeCurrent(Runtime* runtime);

    Platform& platform() { return *platform_; }
    Clock& clock() { return platform_->clock(); }
    MainQueue& mainQueue() { return platform_->mainQueue(); }
    DispatchQueue& globalQueue() { return platform_->globalQueue(); }
    Console& console() { return platform_->console(); }
    Folders& folders() { return platform_->folders(); }
    NotificationCenter& notificationCenter() { return notificationCenter_; }
    OperationQueue& operationQueue() { return *operationQueue_; }

    // Runs `body` on a thread of its own that nobody joins. The runtime still waits for every
    // such body to return before it destroys the SDK's objects.
    void detachThread(std::function<void()> body);
    std::size_t detachedThreadCount() const;
    // How many threads were ever detached (see RunLoop::workSubmitted).
    std::uint64_t detachedThreadsStarted() const;

    // For a process that exits with the runtime still alive: drops the operations not yet
    // started (their submissions stay queued on disk) and waits up to `limit` for running
    // background threads, so that they do not run on while static objects are destroyed.
    void settleBackgroundWork(std::chrono::milliseconds limit);

    // The runtime's single instance of T, made by `make` on first use, once, from any thread.
    // Instances are destroyed in the reverse order of their creation.
    template <class T, class Make>
    std::shared_ptr<T> sharedInstance(Make&& make) {
        Slot& slot = slotFor(typeid(T));
        std::call_once(slot.once, [&] {
            slot.instance = std::shared_ptr<void>(make());
            std::lock_guard lock(mutex_);
            creationOrder_.push_back(slot.instance);
        });
        return std::static_pointer_cast<T>(slot.instance);
    }
    template <class T>
    std::shared_ptr<T> sharedInstance() {
        return sharedInstance<T>([] { return std::make_shared<T>(); });
    }

  private:
    struct Slot {
        std::once_flag once;
        std::shared_ptr<void> instance;
    };
    Slot& slotFor(std::type_index type);

    std::unique_ptr<Platform> platform_;
    NotificationCenter notificationCenter_;
    std::unique_ptr<OperationQueue> operationQueue_;
    std::mutex mutex_;
    mutable std::mutex detachedMutex_;
    std::condition_variable detachedChanged_;
    std::size_t detachedThreads_ = 0;
    std::uint64_t detachedThreadsStarted_ = 0;
    std::map<std::type_index, std::unique_ptr<Slot>> slots_;
    std::vector<std::shared_ptr<void>> creationOrder_;
};

}  // namespace tarvik
