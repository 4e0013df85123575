#include "Platform/Linux/WatchThread.h"

#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

namespace tarvik {

bool WatchThread::start(Callback callback, const std::function<Loop()>& open) {
    std::lock_guard lifecycle(lifecycleMutex_);
    {
        std::lock_guard lock(callbackMutex_);
        callback_ = std::move(callback);
    }
    if (thread_.joinable()) {
        return true;
    }
    int wakeFd = ::eventfd(0, EFD_CLOEXEC);
    if (wakeFd < 0) {
        return false;
    }
    Loop loop = open();
    if (!loop) {
        ::close(wakeFd);
        return false;
    }
    wakeFd_ = wakeFd;
    thread_ = std::thread([loop = std::move(loop), wakeFd] { loop(wakeFd); });
    return true;
}

void WatchThread::stop() {
    std::lock_guard lifecycle(lifecycleMutex_);
    if (thread_.joinable()) {
        std::uint64_t one = 1;
        [[maybe_unused]] ssize_t written = ::write(wakeFd_, &one, sizeof one);
        thread_.join();
        ::close(wakeFd_);
        wakeFd_ = -1;
    }
    std::lock_guard lock(callbackMutex_);
    callback_ = nullptr;
}

bool WatchThread::isRunning() const {
    std::lock_guard lifecycle(lifecycleMutex_);
    return thread_.joinable();
}

void WatchThread::notify() {
    Callback callback;
    {
        std::lock_guard lock(callbackMutex_);
        callback = callback_;
    }
    if (callback) {
        callback();
    }
}

}  // namespace tarvik
