#pragma once

#include <tarvik/Value.h>

#include <atomic>
#include <functional>
#include <memory>

namespace tarvik {

// A scheduled timer; invalidating it stops all further fires. Safe from any thread.
class Timer {
  public:
    void invalidate() { valid_.store(false); }
    bool isValid() const { return valid_.load(); }

  private:
    std::atomic<bool> valid_{true};
};

// The main thread's queue: all of the SDK's interface work and its timers run here.
class MainQueue {
  public:
    using Task = std::function<void()>;

    virtual ~MainQueue() = default;
    virtual void async(Task task) = 0;
    virtual void after(double seconds, Task task) = 0;
    // A timer whose first fire is at `firstFire` and, when it repeats, every `interval`
    // seconds after that; fires that were missed are skipped, not run in a burst.
    virtual std::shared_ptr<Timer> scheduleTimer(Date firstFire, double interval, bool repeats,
                                                 Task fire) = 0;
    virtual bool isMainThread() const = 0;
};

}  // namespace tarvik
