#include "Kit/UIWindow.h"

#include "Kit/UIApplication.h"

namespace tarvik {

UIWindow::UIWindow(Rect frame) : UIView(frame) {
    setHidden(true);
}

void UIWindow::makeKeyWindow() {
    UIApplication::sharedApplication().windowDidBecomeKey(
        std::static_pointer_cast<UIWindow>(shared_from_this()));
}

void UIWindow::makeKeyAndVisible() {
    setHidden(false);
    makeKeyWindow();
}

bool UIWindow::isKeyWindow() const {
    return UIApplication::sharedApplication().keyWindow().get() == this;
}

void UIWindow::sendEvent(const UIEvent& event) {
    for (const std::shared_ptr<UITouch>& touch : event.allTouches()) {
        std::shared_ptr<UIView> view = touch->view();
        if (!view) {
            continue;
        }
        UITouchSet touches{touch};
        switch (touch->phase()) {
            case UITouchPhase::Began:
                view->touchesBegan(touches, event);
                break;
            case UITouchPhase::Moved:
                view->touchesMoved(touches, event);
                break;
            case UITouchPhase::Ended:
                view->touchesEnded(touches, event);
                break;
            case UITouchPhase::Cancelled:
                view->touchesCancelled(touches, event);
                break;
            case UITouchPhase::Stationary:
                break;
        }
    }
}

}  // namespace tarvik
