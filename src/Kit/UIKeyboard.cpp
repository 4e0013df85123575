#include "Kit/UIKeyboard.h"

#include "Platform/Runtime.h"

namespace tarvik {

Rect UIKeyboard::frame(bool shown) const {
    const Rect screen = Runtime::current().platform().screen().bounds();
    const double top = screen.size.height - (shown ? height_ : 0);
    return {{0, top}, {screen.size.width, height_}};
}

void UIKeyboard::update(bool firstResponderTakesText) {
    if (firstResponderTakesText == visible_) {
        return;
    }
    visible_ = firstResponderTakesText;
    auto info = std::make_shared<UIKeyboardNotificationInfo>(
        UIKeyboardNotificationInfo{frame(!visible_), frame(visible_), kAnimationDuration});
    NotificationCenter& center = Runtime::current().notificationCenter();
    center.post(visible_ ? UIKeyboardWillShowNotification : UIKeyboardWillHideNotification, nullptr,
                info);
    center.post(visible_ ? UIKeyboardDidShowNotification : UIKeyboardDidHideNotification, nullptr,
                info);
}

}  // namespace tarvik
