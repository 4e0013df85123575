#pragma once

#include "Platform/Linux/WatchThread.h"

#include <functional>
#include <string>

namespace tarvik {

// Watches the kernel's pressure-stall information for memory: a trigger armed on the pressure
// file makes poll() report POLLPRI whenever tasks stalled on memory for long enough within the
// trigger's window, and each such report calls the callback on the watcher's own thread.
//
// Where the file is missing (kernels without PSI) or refuses the trigger, nothing is watched and
// no warning ever comes; that is not an error.
class MemoryPressureWatcher {
  public:
    // 150 ms of stall of some task within a 2 s window. Unprivileged processes may arm a trigger
    // only when the window is a whole multiple of 2 s.
    static constexpr const char* kTrigger = "some 150000 2000000";

    explicit MemoryPressureWatcher(std::string pressureFile = "/proc/pressure/memory");

    // Arms the trigger and starts the thread, or, when already watching, only replaces the
    // callback. False when pressure cannot be watched here.
    bool start(std::function<void()> onPressure);
    // Wakes the thread and waits for it to end. Safe to call more than once.
    void stop() { thread_.stop(); }
    bool isWatching() const { return thread_.isRunning(); }

  private:
    void run(int pressureFd, int wakeFd);

    const std::string pressureFile_;
    WatchThread thread_;
};

}  // namespace tarvik
