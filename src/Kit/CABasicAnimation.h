#pragma once

#include "Platform/Geometry.h"

#include <map>
#include <memory>
#include <string>

namespace tarvik {

// A layer animation that moves what is shown of a view by `byValue` along one axis and back,
// without touching the view's own values: the key paths "position.x" and "position.y". The pace
// is linear. One run lasts `duration` seconds (twice that when it `autoreverses`) and is
// played `repeatCount` times (at least once).
class CABasicAnimation {
  public:
    static std::shared_ptr<CABasicAnimation> animationWithKeyPath(std::string keyPath);

    const std::string& keyPath() const { return keyPath_; }
    double byValue() const { return byValue_; }
    void setByValue(double value) { byValue_ = value; }
    double duration() const { return duration_; }
    void setDuration(double duration) { duration_ = duration; }
    bool autoreverses() const { return autoreverses_; }
    void setAutoreverses(bool autoreverses) { autoreverses_ = autoreverses; }
    double repeatCount() const { return repeatCount_; }
    void setRepeatCount(double count) { repeatCount_ = count; }

    // How long all runs last together.
    double activeDuration() const;
    // How far it moves what is shown `elapsed` seconds after it began: 0 once it is over.
    Point offsetAt(double elapsed) const;

  private:
    explicit CABasicAnimation(std::string keyPath) : keyPath_(std::move(keyPath)) {}

    std::string keyPath_;
    double byValue_ = 0;
    double duration_ = 0;
    bool autoreverses_ = false;
    double repeatCount_ = 0;
};

// The animations added to a view's layer, each under its key. Adding one copies it and starts
// it at once; one added under a key in use replaces the other. An animation is dropped when it
// is over, so `animationForKey` no longer finds it.
class CALayerAnimations {
  public:
    void addAnimation(const CABasicAnimation& animation, const std::string& key);
    std::shared_ptr<const CABasicAnimation> animationForKey(const std::string& key);
    void removeAnimationForKey(const std::string& key);
    void removeAllAnimations() { running_.clear(); }

    // How far the running animations move what is shown at media time `now`.
    Point offsetAt(double now) const;
    bool isAnimating(double now) const;

  private:
    struct Running {
        std::shared_ptr<const CABasicAnimation> animation;
        double beginTime;
    };
    void dropFinished(double now);

    std::map<std::string, Running> running_;
};

}  // namespace tarvik
