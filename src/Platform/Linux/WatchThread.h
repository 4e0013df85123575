#pragma once

#include <functional>
#include <mutex>
#include <thread>

namespace tarvik {

// The thread of a watcher of kernel events (memory pressure, folder changes): it runs the
// watcher's loop, which polls the watcher's own descriptors and an event descriptor that wakes it
// to end, and calls the watcher's callback, which may be replaced while the thread runs.
class WatchThread {
  public:
    using Callback = std::function<void()>;
    // The watcher's loop: returns once `wakeFd` becomes readable (or its own descriptor fails),
    // after closing what it opened.
    using Loop = std::function<void(int wakeFd)>;

    WatchThread() = default;
    ~WatchThread() { stop(); }
    WatchThread(const WatchThread&) = delete;
    WatchThread& operator=(const WatchThread&) = delete;

    // Replaces the callback; unless the thread runs, asks `open` for the loop and starts it on a
    // thread of its own. `open` answers none when the watching cannot start. Whether the thread
    // runs now.
    bool start(Callback callback, const std::function<Loop()>& open);
    // Wakes the loop and waits for the thread to end, then drops the callback. Safe to call more
    // than once.
    void stop();
    bool isRunning() const;
    // For the loop: calls the current callback, if any.
    void notify();

  private:
    mutable std::mutex lifecycleMutex_;  // start and stop; never taken by the thread
    std::thread thread_;
    int wakeFd_ = -1;
    std::mutex callbackMutex_;
    Callback callback_;
};

}  // namespace tarvik
