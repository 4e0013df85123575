#include "Platform/Testing/FakeTriggers.h"

namespace tarvik::testing {

bool ScriptedAccelerometer::isAvailable() {
    std::lock_guard lock(mutex_);
    return available_;
}

std::optional<Acceleration> ScriptedAccelerometer::read() {
    std::lock_guard lock(mutex_);
    ++reads_;
    return available_ ? acceleration_ : std::nullopt;
}

void ScriptedAccelerometer::setAvailable(bool available) {
    std::lock_guard lock(mutex_);
    available_ = available;
}

void ScriptedAccelerometer::setAcceleration(std::optional<Acceleration> acceleration) {
    std::lock_guard lock(mutex_);
    acceleration_ = acceleration;
}

int ScriptedAccelerometer::readCount() const {
    std::lock_guard lock(mutex_);
    return reads_;
}

void ScriptedUserScreenshots::watch(std::function<void()> didTakeScreenshot) {
    std::lock_guard lock(mutex_);
    didTakeScreenshot_ = std::move(didTakeScreenshot);
}

bool ScriptedUserScreenshots::isWatched() const {
    std::lock_guard lock(mutex_);
    return static_cast<bool>(didTakeScreenshot_);
}

void ScriptedUserScreenshots::takeScreenshot() {
    std::function<void()> didTakeScreenshot;
    {
        std::lock_guard lock(mutex_);
        didTakeScreenshot = didTakeScreenshot_;
    }
    if (didTakeScreenshot) {
        didTakeScreenshot();
    }
}

}  // namespace tarvik::testing
