#include "Platform/Linux/MemoryPressureWatcher.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace tarvik {

MemoryPressureWatcher::MemoryPressureWatcher(std::string pressureFile)
    : pressureFile_(std::move(pressureFile)) {}

bool MemoryPressureWatcher::start(std::function<void()> onPressure) {
    return thread_.start(std::move(onPressure), [this]() -> WatchThread::Loop {
        int pressureFd = ::open(pressureFile_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (pressureFd < 0) {
            return nullptr;
        }
        // The trigger lives as long as this descriptor stays open.
        size_t length = std::strlen(kTrigger) + 1;
        if (::write(pressureFd, kTrigger, length) != static_cast<ssize_t>(length)) {
            ::close(pressureFd);
            return nullptr;
        }
        return [this, pressureFd](int wakeFd) { run(pressureFd, wakeFd); };
    });
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
            thread_.notify();
        }
    }
    ::close(pressureFd);
}

}  // namespace tarvik
