#include "Kit/CABasicAnimation.h"

#include "Platform/Runtime.h"

#include <algorithm>
#include <cmath>

namespace tarvik {

namespace {

// A duration left at 0 runs for the layer's default of a quarter second, as on the phone.
constexpr double kDefaultDuration = 0.25;

}  // namespace

std::shared_ptr<CABasicAnimation> CABasicAnimation::animationWithKeyPath(std::string keyPath) {
    return std::shared_ptr<CABasicAnimation>(new CABasicAnimation(std::move(keyPath)));
}

double CABasicAnimation::activeDuration() const {
    double run = duration_ > 0 ? duration_ : kDefaultDuration;
    return (autoreverses_ ? 2 * run : run) * std::max(repeatCount_, 1.0);
}

Point CABasicAnimation::offsetAt(double elapsed) const {
    if (elapsed < 0 || elapsed >= activeDuration()) {
        return {};
    }
    double run = duration_ > 0 ? duration_ : kDefaultDuration;
    double fraction = std::fmod(elapsed, autoreverses_ ? 2 * run : run) / run;
    if (fraction > 1) {
        fraction = 2 - fraction;  // on the way back
    }
    double distance = byValue_ * fraction;
    if (keyPath_ == "position.x") {
        return {distance, 0};
    }
    if (keyPath_ == "position.y") {
        return {0, distance};
    }
    return {};
}

void CALayerAnimations::addAnimation(const CABasicAnimation& animation, const std::string& key) {
    double now = Runtime::current().clock().mediaTime();
    running_.insert_or_assign(key,
                              Running{std::make_shared<const CABasicAnimation>(animation), now});
}

std::shared_ptr<const CABasicAnimation> CALayerAnimations::animationForKey(const std::string& key) {
    dropFinished(Runtime::current().clock().mediaTime());
    auto found = running_.find(key);
    return found == running_.end() ? nullptr : found->second.animation;
}

void CALayerAnimations::removeAnimationForKey(const std::string& key) {
    running_.erase(key);
}

Point CALayerAnimations::offsetAt(double now) const {
    Point total;
    for (const auto& [key, running] : running_) {
        Point offset = running.animation->offsetAt(now - running.beginTime);
        total.x += offset.x;
        total.y += offset.y;
    }
    return total;
}

bool CALayerAnimations::isAnimating(double now) const {
    return std::any_of(running_.begin(), running_.end(), [&](const auto& entry) {
        return now < entry.second.beginTime + entry.second.animation->activeDuration();
    });
}

void CALayerAnimations::dropFinished(double now) {
    std::erase_if(running_, [&](const auto& entry) {
        return now >= entry.second.beginTime + entry.second.animation->activeDuration();
    });
}

}  // namespace tarvik
