#pragma once

#include "Kit/AffineTransform.h"
#include "Kit/AnimationTiming.h"
#include "Kit/CABasicAnimation.h"
#include "Kit/Color.h"
#include "Platform/Geometry.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

namespace tarvik {

// Options of a view animation, with the phone's bit values. Without AllowUserInteraction a view
// takes no touches while one of its values is animating. The curve is ignored by springs.
enum UIViewAnimationOptions : std::uint32_t {
    UIViewAnimationOptionAllowUserInteraction = 1 << 1,
    UIViewAnimationOptionBeginFromCurrentState = 1 << 2,
    UIViewAnimationOptionCurveEaseInOut = 0 << 16,
    UIViewAnimationOptionCurveEaseIn = 1 << 16,
    UIViewAnimationOptionCurveEaseOut = 2 << 16,
    UIViewAnimationOptionCurveLinear = 3 << 16,
};

class ViewAnimations;

// Told once whether the animations of a block ran to their end.
using UIViewAnimationCompletion = std::function<void(bool finished)>;

// The values of a view that animate.
enum class AnimatableProperty { Center, Bounds, Alpha, Transform, BackgroundColor };
inline constexpr std::size_t kAnimatablePropertyCount = 5;
using AnimatableValue = std::variant<Point, Rect, double, AffineTransform, Color>;

// What an animation block (or a begin/commit pair) started: its timing, options and
// completion, shared by every value it animates. It completes once, on the main queue: at its
// end time, finished unless another animation took over one of its values; at once (the next
// turn of the main queue), not finished, when others took over all of them.
class ViewAnimationGroup : public std::enable_shared_from_this<ViewAnimationGroup> {
  public:
    ViewAnimationGroup(AnimationTiming timing, std::uint32_t options,
                       UIViewAnimationCompletion completion)
        : timing_(timing), options_(options), completion_(std::move(completion)) {}

    const AnimationTiming& timing() const { return timing_; }
    bool allowsUserInteraction() const {
        return options_ & UIViewAnimationOptionAllowUserInteraction;
    }

    // Bookkeeping of the values it animates and of the views that hold them.
    void valueStarted(std::weak_ptr<ViewAnimations> holder);
    void valueTakenOver();
    // Schedules the end (or, for a group with no duration, the completion) on the main queue.
    void scheduleEnd();

  private:
    void end();
    void complete(bool finished);

    AnimationTiming timing_;
    std::uint32_t options_;
    UIViewAnimationCompletion completion_;
    std::vector<std::weak_ptr<ViewAnimations>> holders_;
    int runningValues_ = 0;
    bool takenOver_ = false;
    bool completed_ = false;
};

// The animations running on one view: for each animatable value, where its rendered value
// started from and the group that times it. The rendered value moves from there to the view's
// value of the moment, so a later change made without animation is headed for at once. Also
// the animations of the view's layer.
class ViewAnimations : public std::enable_shared_from_this<ViewAnimations> {
  public:
    struct Running {
        AnimatableValue from;
        std::shared_ptr<ViewAnimationGroup> group;
    };

    // Animates `property` from `from` in `group`, taking over from an animation of it that runs.
    void start(AnimatableProperty property, AnimatableValue from,
               const std::shared_ptr<ViewAnimationGroup>& group);
    // Forgets the values that `group` animates.
    void forget(const ViewAnimationGroup& group);
    // The animation of `property` that is not over at media time `now`, if any.
    const Running* running(AnimatableProperty property, double now) const;

    bool isAnimating(double now) const;
    // Whether an animation that does not allow user interaction is running.
    bool blocksTouches(double now) const;
    CALayerAnimations& layer() { return layer_; }
    const CALayerAnimations& layer() const { return layer_; }

  private:
    std::array<std::optional<Running>, kAnimatablePropertyCount> values_;
    CALayerAnimations layer_;
};

}  // namespace tarvik
