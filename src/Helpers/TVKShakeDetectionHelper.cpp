#include "Helpers/TVKShakeDetectionHelper.h"

#include "Helpers/TVKLogger.h"
#include "Platform/Runtime.h"
#include "Public/DebugConsole.h"

#include <tarvik/Tarvik.h>
#include <tarvik/TarvikConstants.h>

#include <chrono>
#include <cmath>

namespace tarvik {

std::shared_ptr<TVKShakeDetectionHelper> TVKShakeDetectionHelper::sharedInstance() {
    return Runtime::current().sharedInstance<TVKShakeDetectionHelper>();
}

TVKShakeDetectionHelper::TVKShakeDetectionHelper()
    : shakingTimestamp_(Runtime::current().clock().now()),
      notificationCenter_(Runtime::current().notificationCenter()) {
    simulatorShakeObserver_ =
        notificationCenter_.addObserver(TarvikNotificationDidShakeInSimulator,
                                        [this](const Notification&) { didShakeInSimulator(); });
}

TVKShakeDetectionHelper::~TVKShakeDetectionHelper() {
    notificationCenter_.removeObserver(simulatorShakeObserver_);
    if (motionTimer_) {
        motionTimer_->invalidate();
    }
}

void TVKShakeDetectionHelper::startDetectingShake() {
    std::shared_ptr<TVKShakeDetectionHelper> helper = sharedInstance();
    std::lock_guard lock(helper->mutex_);
    helper->motionManager().startAccelerometerUpdates();
}

void TVKShakeDetectionHelper::stopDetectingShake() {
    std::shared_ptr<TVKShakeDetectionHelper> helper = sharedInstance();
    std::lock_guard lock(helper->mutex_);
    if (!helper->motionTimer_) {
        return;
    }
    helper->motionManager_->stopAccelerometerUpdates();
    helper->motionManager_.reset();
    helper->motionTimer_->invalidate();
    helper->motionTimer_.reset();
}

CMMotionManager& TVKShakeDetectionHelper::motionManager() {
    if (motionManager_) {
        return *motionManager_;
    }
    Runtime& runtime = Runtime::current();
    motionManager_ = std::make_unique<CMMotionManager>(runtime.platform().accelerometer());
    if (motionManager_->isAccelerometerAvailable()) {
        logToConsoleIfDebug("Shake gesture possible!");
        motionManager_->setAccelerometerUpdateInterval(kAccelerometerUpdateInterval);
        motionManager_->startAccelerometerUpdates();
        Date firstFire = runtime.clock().now() + std::chrono::duration_cast<Date::duration>(
                                                     std::chrono::duration<double>(kCheckInterval));
        motionTimer_ = runtime.mainQueue().scheduleTimer(firstFire, kCheckInterval, true,
                                                         [this] { updateAccelerometerData(); });
    } else {
        static constexpr const char* kNotAvailable =
            "Accelerometer not available for shake detection";
        logToConsoleIfDebug(kNotAvailable);
        TVKLogger::logMessage(kNotAvailable);
    }
    return *motionManager_;
}

void TVKShakeDetectionHelper::updateAccelerometerData() {
    bool shaken = false;
    {
        std::lock_guard lock(mutex_);
        if (!motionManager_) {
            return;  // stopped while this fire was on its way
        }
        motionManager_->stopAccelerometerUpdates();
        if (Tarvik::sharedInstance().processType() != TarvikProcessTypeShake) {
            return;  // dormant: the updates stay stopped until detection starts again
        }
        Acceleration sample = motionManager_->accelerometerData().value_or(Acceleration{});
        if (std::abs(sample.x) > kThresholdX || std::abs(sample.y) > kThresholdY) {
            Date now = Runtime::current().clock().now();
            std::chrono::duration<double> elapsed = now - shakingTimestamp_;
            shaken = elapsed.count() < kShakeInterval;
            shakingTimestamp_ = now;
        }
        motionManager_->startAccelerometerUpdates();
    }
    if (shaken) {
        notificationCenter_.post(TarvikNotificationShouldLaunchIssueSubmission);
    }
}

void TVKShakeDetectionHelper::didShakeInSimulator() {
    if (Tarvik::sharedInstance().processType() == TarvikProcessTypeShake) {
        notificationCenter_.post(TarvikNotificationShouldLaunchIssueSubmission);
    }
}

}  // namespace tarvik
