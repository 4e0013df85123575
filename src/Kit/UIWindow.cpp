#include "Kit/UIWindow.h"

namespace tarvik {

UIWindow::UIWindow(Rect frame) : UIView(frame) {
    setHidden(true);
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
