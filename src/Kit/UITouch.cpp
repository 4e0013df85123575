#include "Kit/UITouch.h"

#include "Kit/UIWindow.h"

namespace tarvik {

UITouch::UITouch(std::shared_ptr<UIWindow> window, std::shared_ptr<UIView> view,
                 Point locationInWindow, double timestamp)
    : window_(window),
      view_(view),
      location_(locationInWindow),
      previousLocation_(locationInWindow),
      timestamp_(timestamp) {}

void UITouch::update(UITouchPhase phase, Point locationInWindow, double timestamp) {
    phase_ = phase;
    previousLocation_ = location_;
    location_ = locationInWindow;
    timestamp_ = timestamp;
}

Point UITouch::fromWindow(Point point, const UIView* view) const {
    std::shared_ptr<UIWindow> window = window_.lock();
    if (!view) {
        return point;
    }
    return view->convertPointFromView(point, window.get());
}

Point UITouch::locationInView(const UIView* view) const {
    return fromWindow(location_, view);
}

Point UITouch::previousLocationInView(const UIView* view) const {
    return fromWindow(previousLocation_, view);
}

}  // namespace tarvik
