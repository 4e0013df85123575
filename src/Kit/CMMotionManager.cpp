#include "Kit/CMMotionManager.h"

#include "Platform/Runtime.h"

namespace tarvik {

void CMMotionManager::startAccelerometerUpdates() {
    if (!runStart_) {
        runStart_ = Runtime::current().clock().mediaTime();
    }
}

void CMMotionManager::stopAccelerometerUpdates() {
    if (!runStart_) {
        return;
    }
    double ran = Runtime::current().clock().mediaTime() - *runStart_;
    runStart_.reset();
    sampleToRead_ = sampleToRead_ || ran >= updateInterval_;
}

std::optional<Acceleration> CMMotionManager::accelerometerData() {
    if (sampleToRead_ && !runStart_) {
        latest_ = accelerometer_.read();
        sampleToRead_ = false;
    }
    return latest_;
}

}  // namespace tarvik
