#include "Platform/Linux/MemoryPressureWatcher.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tarvik {

MemoryPressureWatcher::MemoryPressureWatcher(std::string pressureFile)
    : pressureFile_(std::move(pressureFile)) {}

MemoryPressureWatcher::~MemoryPressureWatcher() {
    stop();
}

bool MemoryPressureWatcher::start(std::function<void()> onPressure) {
    std::lock_guard lifecycle(lifecycleMutex_);
    {
        std::lock_guard lock(callbackMutex_);
        onPressure_ = std::move(onPressure);
    }
    if (thread_.joinable()) {
        return true;
    }
    int pressureFd = ::open(pressureFile_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (pressureFd < 0) {
        return false;
    }
    // The trigger lives as long as this descriptor stays open.
    size_t length = std::strlen(kTrigger) + 1;
    if (::write(pressureFd, kTrigger, length) != static_cast<ssize_t>(length)) {
        ::close(pressureFd);
        return false;
    }
    int wakeFd = ::eventfd(0, EFD_CLOEXEC);
    if (wakeFd < 0) {
        ::close(pressureFd);
        return false;
    }
    wakeFd_ = wakeFd;
    thread_ = std::thread([this, pressureFd, wakeFd] { run(pressureFd, wakeFd); });
    return true;
}

void MemoryPressureWatcher::stop() {
    std::lock_guard lifecycle(lifecycleMutex_);
    if (thread_.joinable()) {
        std::uint64_t one = 1;
        [[maybe_unused]] ssize_t written = ::write(wakeFd_, &one, sizeof one);
        thread_.join();
        ::close(wakeFd_);
        wakeFd_ = -1;
    }
    std::lock_guard lock(callbackMutex_);
    onPressure_ = nullptr;
}

bool MemoryPressureWatcher::isWatching() const {
    std::lock_guard lifecycle(lifecycleMutex_);
    return thread_.joinable();
}

void MemoryPressureWatcher::run(int pressureFd, int wakeFd) {
    pollfd watched[2] = {{pressureFd, POLLPRI, 0}, {wakeFd, POLLIN, 0}};
    for (;;) {
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        if (watched[1].revents != 0) {
            break;
        }
        // An error on the pressure file means the trigger is gone; nothing more will come.
        if (watched[0].revents & (POLLERR | POLLNVAL)) {
            break;
        }
        if (watched[0].revents & POLLPRI) {
            notify();
        }
    }
    ::close(pressureFd);
}

void MemoryPressureWatcher::notify() {
    std::function<void()> onPressure;
    {
        std::lock_guard lock(callbackMutex_);
        onPressure = onPressure_;
    }
    if (onPressure) {
        onPressure();
    }
}

}  // namespace tarvik
