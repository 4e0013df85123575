#include "Platform/Runtime.h"

#include <atomic>
#include <cstdlib>
#include <thread>
#include <utility>

namespace tarvik {

namespace {
std::atomic<Runtime*> currentRuntime{nullptr};
std::once_flag defaultRuntimeOnce;
}  // namespace

Runtime::Runtime(std::unique_ptr<Platform> platform)
    : platform_(std::move(platform)), operationQueue_(std::make_unique<OperationQueue>()) {}

Runtime::~Runtime() {
    // Background work may still reach the SDK's objects: stop it first.
    operationQueue_.reset();
    {
        std::unique_lock lock(detachedMutex_);
        detachedChanged_.wait(lock, [this] { return detachedThreads_ == 0; });
    }
    platform_->shutDown();
    std::vector<std::shared_ptr<void>> instances;
    {
        std::lock_guard lock(mutex_);
        instances.swap(creationOrder_);
        slots_.clear();
    }
    while (!instances.empty()) {
        instances.pop_back();
    }
}

void Runtime::detachThread(std::function<void()> body) {
    {
        std::lock_guard lock(detachedMutex_);
        ++detachedThreads_;
        ++detachedThreadsStarted_;
    }
    std::thread([this, body = std::move(body)]() mutable {
        // Released before the count goes down: what it holds may reach the SDK's objects,
        // which the runtime destroys as soon as the count is zero.
        std::exchange(body, nullptr)();
        // Notified under the lock: the runtime may be destroyed as soon as a waiter sees zero.
        std::lock_guard lock(detachedMutex_);
        --detachedThreads_;
        detachedChanged_.notify_all();
    }).detach();
}

void Runtime::settleBackgroundWork(std::chrono::milliseconds limit) {
    operationQueue_->cancelAllOperations();
    std::unique_lock lock(detachedMutex_);
    detachedChanged_.wait_for(lock, limit, [this] { return detachedThreads_ == 0; });
}

std::size_t Runtime::detachedThreadCount() const {
    std::lock_guard lock(detachedMutex_);
    return detachedThreads_;
}

std::uint64_t Runtime::detachedThreadsStarted() const {
    std::lock_guard lock(detachedMutex_);
    return detachedThreadsStarted_;
}

Runtime& Runtime::current() {
    if (Runtime* runtime = currentRuntime.load()) {
        return *runtime;
    }
    std::call_once(defaultRuntimeOnce, [] {
        // Deliberately never destroyed: the SDK's parts live until the process ends.
        auto* runtime = new Runtime(makeDefaultPlatform());
        Runtime* expected = nullptr;
        if (!currentRuntime.compare_exchange_strong(expected, runtime)) {
            delete runtime;
        } else {
            std::atexit([] {
                // A send in flight gets a moment to finish; a slower one is cut off by the
                // exit, and its submission is sent again at the next launch.
                if (Runtime* current = currentRuntime.load()) {
                    current->settleBackgroundWork(std::chrono::seconds(2));
                }
            });
        }
    });
    return *currentRuntime.load();
}

Runtime* Runtime::exchangeCurrent(Runtime* runtime) {
    return currentRuntime.exchange(runtime);
}

Runtime::Slot& Runtime::slotFor(std::type_index type) {
    std::lock_guard lock(mutex_);
    std::unique_ptr<Slot>& slot = slots_[type];
    if (!slot) {
        slot = std::make_unique<Slot>();
    }
    return *slot;
}

}  // namespace tarvik
