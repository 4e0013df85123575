#pragma once

#include "Platform/Clock.h"
#include "Platform/MainQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace tarvik {

// The main queue of the Linux and Testing platforms: tasks and timers kept in order and run by
// whichever driver owns the main thread (a real-time loop, or a virtual clock in tests).
class RunLoop : public MainQueue {
  public:
    explicit RunLoop(const Clock& clock);

    void async(Task task) override;
    void after(double seconds, Task task) override;
    std::shared_ptr<Timer> scheduleTimer(Date firstFire, double interval, bool repeats,
                                         Task fire) override;
    bool isMainThread() const override;

    // The calling thread becomes the main thread.
    void adoptCurrentThread();

    // Runs the tasks queued so far and every timer due at the clock's media time. Returns
    // whether anything ran.
    bool runDueWork();
    // Media time of the earliest timer, if any.
    std::optional<double> nextTimerDue() const;
    // Whether a task is queued or a timer is due at the clock's media time.
    bool hasDueWork() const;
    // How many tasks and timers were ever handed to the loop. Two equal readings mean nothing
    // arrived in between, which lets a waiter tell "idle" from "idle at each glance".
    std::uint64_t workSubmitted() const;
    // Blocks until a task is queued, `wake` is called, or `seconds` of real time pass.
    void waitForWork(double seconds);
    void wake();

  private:
    struct ScheduledTimer {
        double due;
        std::uint64_t sequence;
        double interval;
        bool repeats;
        std::shared_ptr<Timer> handle;
        std::shared_ptr<Task> fire;
    };

    bool runQueuedTasks();
    bool runOneDueTimer();
    void insertTimer(ScheduledTimer timer);

    const Clock& clock_;
    mutable std::mutex mutex_;
    std::condition_variable workArrived_;
    bool woken_ = false;
    std::deque<Task> tasks_;
    std::vector<ScheduledTimer> timers_;  // sorted by due time, then sequence
    std::uint64_t nextSequence_ = 0;
    std::uint64_t tasksSubmitted_ = 0;
    std::atomic<std::thread::id> mainThread_;
};

}  // namespace tarvik
