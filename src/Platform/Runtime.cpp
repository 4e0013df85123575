#include "Platform/Runtime.h"

#include <atomic>
#include <thread>

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
    }
    std::thread([this, body = std::move(body)] {
        body();
        // Notified under the lock: the runtime may be destroyed as soon as a waiter sees zero.
        std::lock_guard lock(detachedMutex_);
        --detachedThreads_;
        detachedChanged_.notify_all();
    }).detach();
}

std::size_t Runtime::detachedThreadCount() const {
    std::lock_guard lock(detachedMutex_);
    return detachedThreads_;
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
