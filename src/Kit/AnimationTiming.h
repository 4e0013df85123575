#pragma once

#include <variant>

namespace tarvik {

// The pace of a view animation, as the phone names them.
enum class UIViewAnimationCurve { EaseInOut = 0, EaseIn = 1, EaseOut = 2, Linear = 3 };

// A cubic Bézier pace from (0, 0) to (1, 1) with control points (x1, y1) and (x2, y2): the
// fraction of the change done when a fraction `t` of the time has passed.
class CubicTimingCurve {
  public:
    CubicTimingCurve(double x1, double y1, double x2, double y2)
        : x1_(x1), y1_(y1), x2_(x2), y2_(y2) {}
    static CubicTimingCurve forCurve(UIViewAnimationCurve curve);

    double valueAt(double t) const;

  private:
    double x1_, y1_, x2_, y2_;
};

// A mass on a spring released at distance 1 from its rest position with velocity `velocity`
// towards it (in distances per second), damped with ratio `damping` (1: no overshoot; nearer 0:
// more swings; above 1 counts as 1). The stiffness is chosen so that the motion has settled to
// within a thousandth of the distance when `duration` has passed: the animation ends there.
class SpringTimingCurve {
  public:
    SpringTimingCurve(double damping, double velocity, double duration);

    // The fraction of the change done `elapsed` seconds in; it may pass 1 while it swings.
    double valueAt(double elapsed) const;

  private:
    // The largest distance from rest the motion can have at `elapsed` with frequency `omega`.
    double envelope(double omega, double elapsed) const;

    double damping_;
    double velocity_;
    double omega_;
};

// When an animation runs and how the fraction of its change done follows the time.
class AnimationTiming {
  public:
    AnimationTiming(double beginTime, double duration, UIViewAnimationCurve curve);
    AnimationTiming(double beginTime, double duration, SpringTimingCurve spring);

    double beginTime() const { return beginTime_; }
    double duration() const { return duration_; }
    double endTime() const { return beginTime_ + duration_; }
    bool isOver(double now) const { return now >= endTime(); }
    // 0 before the begin time, 1 from the end time on, the curve's value between.
    double progress(double now) const;

  private:
    double beginTime_;
    double duration_;
    std::variant<CubicTimingCurve, SpringTimingCurve> curve_;
};

}  // namespace tarvik
