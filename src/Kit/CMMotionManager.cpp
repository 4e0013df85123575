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
    if (ran >= updateInterval_) {
        latest_ = accelerometer_.read();
    }
}

}  // namespace tarvik
