#pragma once

#include "Platform/Accelerometer.h"
#include "Platform/UserScreenshots.h"

#include <functional>
#include <mutex>
#include <optional>

namespace tarvik::testing {

// An accelerometer whose readings a test sets: the device lies still (0, 0, -1 g) until the
// test moves it. Counts its readings.
class ScriptedAccelerometer : public Accelerometer {
  public:
    bool isAvailable() override;
    std::optional<Acceleration> read() override;

    void setAvailable(bool available);
    // What every reading answers from now on; none makes readings fail.
    void setAcceleration(std::optional<Acceleration> acceleration);
    int readCount() const;

  private:
    mutable std::mutex mutex_;
    bool available_ = true;
    std::optional<Acceleration> acceleration_ = Acceleration{0, 0, -1};
    int reads_ = 0;
};

// The user's screenshots as a test takes them.
class ScriptedUserScreenshots : public UserScreenshots {
  public:
    void watch(std::function<void()> didTakeScreenshot) override;
    bool isWatched() const;
    // The user takes a screenshot: the watcher, if any, hears of it on the calling thread.
    void takeScreenshot();

  private:
    mutable std::mutex mutex_;
    std::function<void()> didTakeScreenshot_;
};

}  // namespace tarvik::testing
