#pragma once

#include "Platform/Geometry.h"

namespace tarvik {

inline constexpr const char* UIKeyboardWillShowNotification = "UIKeyboardWillShowNotification";
inline constexpr const char* UIKeyboardDidShowNotification = "UIKeyboardDidShowNotification";
inline constexpr const char* UIKeyboardWillHideNotification = "UIKeyboardWillHideNotification";
inline constexpr const char* UIKeyboardDidHideNotification = "UIKeyboardDidHideNotification";

// The user info of the keyboard's notifications: where it was and where it will be, in screen
// coordinates, and how long its move takes.
struct UIKeyboardNotificationInfo {
    Rect frameBegin;
    Rect frameEnd;
    double animationDuration = 0;
};

// The keyboard that comes up while a text-taking responder is first responder. Its height is
// the presenter's: an on-screen keyboard's, or 0 on a desktop with a physical keyboard, where
// it still "shows" so that observers see the same notifications.
class UIKeyboard {
  public:
    static constexpr double kAnimationDuration = 0.25;

    double height() const { return height_; }
    void setHeight(double height) { height_ = height; }
    bool isVisible() const { return visible_; }

    // Shows or hides the keyboard to match whether the first responder takes text, posting
    // the will/did notifications of a change.
    void update(bool firstResponderTakesText);

  private:
    Rect frame(bool shown) const;

    double height_ = 0;
    bool visible_ = false;
};

}  // namespace tarvik
