#include "Platform/RunLoop.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace tarvik {

RunLoop::RunLoop(const Clock& clock) : clock_(clock), mainThread_(std::this_thread::get_id()) {}

void RunLoop::async(Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        ++tasksSubmitted_;
    }
    workArrived_.notify_all();
}

void RunLoop::after(double seconds, Task task) {
    auto handle = std::make_shared<Timer>();
    std::lock_guard lock(mutex_);
    insertTimer({clock_.mediaTime() + std::max(0.0, seconds), nextSequence_++, 0, false, handle,
                 std::make_shared<Task>(std::move(task))});
    workArrived_.notify_all();
}

std::shared_ptr<Timer> RunLoop::scheduleTimer(Date firstFire, double interval, bool repeats,
                                              Task fire) {
    auto handle = std::make_shared<Timer>();
    double delay = std::chrono::duration<double>(firstFire - clock_.now()).count();
    std::lock_guard lock(mutex_);
    insertTimer({clock_.mediaTime() + std::max(0.0, delay), nextSequence_++, interval,
                 repeats && interval > 0, handle, std::make_shared<Task>(std::move(fire))});
    workArrived_.notify_all();
    return handle;
}

bool RunLoop::isMainThread() const {
    return std::this_thread::get_id() == mainThread_.load();
}

void RunLoop::adoptCurrentThread() {
    mainThread_.store(std::this_thread::get_id());
}

void RunLoop::insertTimer(ScheduledTimer timer) {
    // A waiting driver must recompute its deadline: the new timer may be due sooner.
    woken_ = true;
    auto later =
        std::upper_bound(timers_.begin(), timers_.end(), timer,
                         [](const ScheduledTimer& a, const ScheduledTimer& b) {
                             return a.due < b.due || (a.due == b.due && a.sequence < b.sequence);
                         });
    timers_.insert(later, std::move(timer));
}

bool RunLoop::runDueWork() {
    bool ran = runQueuedTasks();
    while (runOneDueTimer()) {
        ran = true;
    }
    return ran;
}

bool RunLoop::runQueuedTasks() {
    std::deque<Task> batch;
    {
        std::lock_guard lock(mutex_);
        batch.swap(tasks_);
    }
    // Tasks queued while this batch runs wait for the next pass, as on a real run loop.
    for (Task& task : batch) {
        task();
    }
    return !batch.empty();
}

bool RunLoop::runOneDueTimer() {
    std::shared_ptr<Task> fire;
    {
        std::lock_guard lock(mutex_);
        // Drop timers that were invalidated before their turn.
        std::erase_if(timers_, [](const ScheduledTimer& t) { return !t.handle->isValid(); });
        double now = clock_.mediaTime();
        if (timers_.empty() || timers_.front().due > now) {
            return false;
        }
        ScheduledTimer timer = std::move(timers_.front());
        timers_.erase(timers_.begin());
        fire = timer.fire;
        if (timer.repeats) {
            double missed = std::floor((now - timer.due) / timer.interval);
            timer.due += (missed + 1) * timer.interval;
            timer.sequence = nextSequence_++;
            insertTimer(std::move(timer));
        } else {
            timer.handle->invalidate();
        }
    }
    (*fire)();
    return true;
}

std::optional<double> RunLoop::nextTimerDue() const {
    std::lock_guard lock(mutex_);
    for (const ScheduledTimer& timer : timers_) {
        if (timer.handle->isValid()) {
            return timer.due;
        }
    }
    return std::nullopt;
}

bool RunLoop::hasDueWork() const {
    std::lock_guard lock(mutex_);
    double now = clock_.mediaTime();
    return !tasks_.empty() ||
           std::any_of(timers_.begin(), timers_.end(), [now](const ScheduledTimer& timer) {
               return timer.handle->isValid() && timer.due <= now;
           });
}

std::uint64_t RunLoop::workSubmitted() const {
    std::lock_guard lock(mutex_);
    // Every timer takes a sequence number when it is scheduled or rescheduled.
    return tasksSubmitted_ + nextSequence_;
}

void RunLoop::waitForWork(double seconds) {
    std::unique_lock lock(mutex_);
    workArrived_.wait_for(lock, std::chrono::duration<double>(std::max(0.0, seconds)),
                          [this] { return !tasks_.empty() || woken_; });
    woken_ = false;
}

void RunLoop::wake() {
    {
        std::lock_guard lock(mutex_);
        woken_ = true;
    }
    workArrived_.notify_all();
}

}  // namespace tarvik
