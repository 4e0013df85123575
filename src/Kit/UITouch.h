#pragma once

#include "Kit/NSObject.h"
#include "Platform/Geometry.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace tarvik {

class UIView;
class UIWindow;

enum class UITouchPhase { Began, Moved, Stationary, Ended, Cancelled };

// One finger on the screen, the same object from touch-down to lift-off. Its location is kept
// in its window's coordinates and given in any view's.
class UITouch : public NSObject {
    TVK_KIT_CLASS(UITouch, NSObject)

  public:
    UITouch(std::shared_ptr<UIWindow> window, std::shared_ptr<UIView> view, Point locationInWindow,
            double timestamp);

    UITouchPhase phase() const { return phase_; }
    double timestamp() const { return timestamp_; }
    std::shared_ptr<UIWindow> window() const { return window_.lock(); }
    // The view that was hit at touch-down; it gets every report of this touch.
    std::shared_ptr<UIView> view() const { return view_.lock(); }
    // Where the finger is, in `view`'s bounds coordinates (the window's for none).
    Point locationInView(const UIView* view) const;
    Point previousLocationInView(const UIView* view) const;

    // Moves the touch on to a new phase and place (the application's input does this).
    void update(UITouchPhase phase, Point locationInWindow, double timestamp);

  private:
    Point fromWindow(Point point, const UIView* view) const;

    std::weak_ptr<UIWindow> window_;
    std::weak_ptr<UIView> view_;
    UITouchPhase phase_ = UITouchPhase::Began;
    Point location_;
    Point previousLocation_;
    double timestamp_;
};

using UITouchSet = std::vector<std::shared_ptr<UITouch>>;

enum class UIEventType { Touches = 0, Motion = 1 };
enum class UIEventSubtype { None = 0, MotionShake = 1 };

// What one moment of input carries: the touches that changed, or a motion.
class UIEvent : public NSObject {
    TVK_KIT_CLASS(UIEvent, NSObject)

  public:
    UIEvent(UIEventType type, UIEventSubtype subtype, UITouchSet touches, double timestamp)
        : type_(type), subtype_(subtype), touches_(std::move(touches)), timestamp_(timestamp) {}

    UIEventType type() const { return type_; }
    UIEventSubtype subtype() const { return subtype_; }
    const UITouchSet& allTouches() const { return touches_; }
    double timestamp() const { return timestamp_; }

  private:
    UIEventType type_;
    UIEventSubtype subtype_;
    UITouchSet touches_;
    double timestamp_;
};

}  // namespace tarvik
