#pragma once

#include "Kit/UIView.h"

namespace tarvik {

inline constexpr double UIWindowLevelNormal = 0;
inline constexpr double UIWindowLevelStatusBar = 1000;

// The root of a tree of views on the screen. A window starts hidden; it hands each touch of an
// event to the view the touch began in.
class UIWindow : public UIView {
    TVK_KIT_CLASS(UIWindow, UIView)

  public:
    explicit UIWindow(Rect frame = {});

    double windowLevel() const { return windowLevel_; }
    void setWindowLevel(double level) { windowLevel_ = level; }

    virtual void sendEvent(const UIEvent& event);

  private:
    double windowLevel_ = UIWindowLevelNormal;
};

}  // namespace tarvik
