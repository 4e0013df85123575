#pragma once

#include "Kit/CMMotionManager.h"
#include "Platform/MainQueue.h"
#include "Platform/NotificationCenter.h"

#include <memory>
#include <mutex>

namespace tarvik {

// Turns a shake of the device into "TarvikNotificationShouldLaunchIssueSubmission", while the
// SDK's process type is the shake. It polls the accelerometer itself: a timer checks the latest
// sample five times a second, and a shake is two checks over the threshold less than 0.3 s
// apart, so a single jolt only arms it. Where the shake is noticed by other means (the
// simulator's shake command, a desktop's stand-in key), "TarvikNotificationDidShakeInSimulator"
// does the same.
class TVKShakeDetectionHelper {
  public:
    // The helper's constants are single-precision values widened to double, as the phone's
    // motion APIs take them.
    static constexpr double kAccelerometerUpdateInterval = static_cast<double>(0.1F);
    static constexpr double kCheckInterval = static_cast<double>(0.2F);
    static constexpr double kShakeInterval = static_cast<double>(0.3F);
    // In g, on the absolute value, strictly greater; y is x's times 0.8 in single precision.
    static constexpr double kThresholdX = 1.6;
    static constexpr double kThresholdY = kThresholdX * static_cast<double>(0.8F);

    // Made once, at first use: the creation time is the first shake time, and the simulator's
    // shake is observed from then on.
    static std::shared_ptr<TVKShakeDetectionHelper> sharedInstance();
    // Starts the accelerometer (making the motion manager, and with it the check timer, if
    // there is none).
    static void startDetectingShake();
    // Drops the motion manager and the timer, if the timer exists.
    static void stopDetectingShake();

    // The check timer's work: stops the updates, looks at the latest sample (only in the shake
    // process type, else detection stays dormant) and starts the updates again.
    void updateAccelerometerData();
    // Posts the launch notification in the shake process type.
    void didShakeInSimulator();

    TVKShakeDetectionHelper();
    ~TVKShakeDetectionHelper();
    TVKShakeDetectionHelper(const TVKShakeDetectionHelper&) = delete;
    TVKShakeDetectionHelper& operator=(const TVKShakeDetectionHelper&) = delete;

  private:
    // Made on first use, with the timer when the device has an accelerometer. Under mutex_.
    CMMotionManager& motionManager();

    std::mutex mutex_;
    std::unique_ptr<CMMotionManager> motionManager_;
    Date shakingTimestamp_;
    std::shared_ptr<Timer> motionTimer_;
    NotificationCenter& notificationCenter_;
    NotificationCenter::Token simulatorShakeObserver_;
};

}  // namespace tarvik
