#include "Kit/AnimationTiming.h"

#include <algorithm>
#include <cmath>

namespace tarvik {

namespace {

// A spring counts as settled once it stays within this fraction of the distance.
constexpr double kSettledDistance = 1e-3;
// Below this a spring would swing for ever; it is the least damping a spring gets.
constexpr double kLeastDamping = 0.01;

// One coordinate of the cubic Bézier from 0 to 1 with inner control values `p1` and `p2`.
double bezier(double p1, double p2, double s) {
    double inverse = 1 - s;
    return 3 * inverse * inverse * s * p1 + 3 * inverse * s * s * p2 + s * s * s;
}

double bezierSlope(double p1, double p2, double s) {
    double inverse = 1 - s;
    return 3 * inverse * inverse * p1 + 6 * inverse * s * (p2 - p1) + 3 * s * s * (1 - p2);
}

}  // namespace

CubicTimingCurve CubicTimingCurve::forCurve(UIViewAnimationCurve curve) {
    switch (curve) {
        case UIViewAnimationCurve::EaseIn:
            return {0.42, 0, 1, 1};
        case UIViewAnimationCurve::EaseOut:
            return {0, 0, 0.58, 1};
        case UIViewAnimationCurve::Linear:
            return {0, 0, 1, 1};
        case UIViewAnimationCurve::EaseInOut:
            break;
    }
    return {0.42, 0, 0.58, 1};
}

double CubicTimingCurve::valueAt(double t) const {
    t = std::clamp(t, 0.0, 1.0);
    // The curve's parameter whose x is t: Newton's steps from t, bisection where they stall.
    double s = t;
    for (int step = 0; step < 8; ++step) {
        double error = bezier(x1_, x2_, s) - t;
        double slope = bezierSlope(x1_, x2_, s);
        if (std::abs(error) < 1e-9) {
            return bezier(y1_, y2_, s);
        }
        if (std::abs(slope) < 1e-6) {
            break;
        }
        s = std::clamp(s - error / slope, 0.0, 1.0);
    }
    double low = 0, high = 1;
    s = t;
    for (int step = 0; step < 40; ++step) {
        (bezier(x1_, x2_, s) < t ? low : high) = s;
        s = (low + high) / 2;
    }
    return bezier(y1_, y2_, s);
}

SpringTimingCurve::SpringTimingCurve(double damping, double velocity, double duration)
    : damping_(std::clamp(damping, kLeastDamping, 1.0)), velocity_(velocity) {
    // The envelope shrinks as the frequency grows: bisect for the frequency whose envelope
    // reaches the settled distance exactly at the end.
    double low = 0;
    double high = 1;
    while (envelope(high, duration) > kSettledDistance && high < 1e9) {
        low = high;
        high *= 2;
    }
    for (int step = 0; step < 60; ++step) {
        double middle = (low + high) / 2;
        (envelope(middle, duration) > kSettledDistance ? low : high) = middle;
    }
    omega_ = high;
}

// With x the distance from rest (1 at the start), the motion solves
// x'' + 2 damping omega x' + omega^2 x = 0, x(0) = 1, x'(0) = -velocity.
double SpringTimingCurve::valueAt(double elapsed) const {
    double decay = std::exp(-damping_ * omega_ * elapsed);
    double distance;
    if (damping_ < 1) {
        double swing = omega_ * std::sqrt(1 - damping_ * damping_);
        distance = decay * (std::cos(swing * elapsed) +
                            (damping_ * omega_ - velocity_) / swing * std::sin(swing * elapsed));
    } else {
        distance = decay * (1 + (omega_ - velocity_) * elapsed);
    }
    return 1 - distance;
}

double SpringTimingCurve::envelope(double omega, double elapsed) const {
    double decay = std::exp(-damping_ * omega * elapsed);
    if (damping_ < 1) {
        double swing = omega * std::sqrt(1 - damping_ * damping_);
        double sine = (damping_ * omega - velocity_) / swing;
        return decay * std::sqrt(1 + sine * sine);
    }
    return decay * (1 + std::abs(omega - velocity_) * elapsed);
}

AnimationTiming::AnimationTiming(double beginTime, double duration, UIViewAnimationCurve curve)
    : beginTime_(beginTime), duration_(duration), curve_(CubicTimingCurve::forCurve(curve)) {}

AnimationTiming::AnimationTiming(double beginTime, double duration, SpringTimingCurve spring)
    : beginTime_(beginTime), duration_(duration), curve_(spring) {}

double AnimationTiming::progress(double now) const {
    if (now <= beginTime_) {
        return 0;
    }
    if (now >= endTime()) {
        return 1;
    }
    double elapsed = now - beginTime_;
    if (const auto* spring = std::get_if<SpringTimingCurve>(&curve_)) {
        return spring->valueAt(elapsed);
    }
    return std::get<CubicTimingCurve>(curve_).valueAt(elapsed / duration_);
}

}  // namespace tarvik
