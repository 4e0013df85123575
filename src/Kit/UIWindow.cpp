#include "Kit/UIWindow.h"

#include "Kit/UIApplication.h"
#include "Kit/UIViewController.h"

#include <utility>

namespace tarvik {

UIWindow::UIWindow(Rect frame) : UIView(frame) {
    setHidden(true);
}

void UIWindow::setRootViewController(std::shared_ptr<UIViewController> controller) {
    if (controller == rootViewController_) {
        return;
    }
    bool shown = !isHidden();
    if (std::shared_ptr<UIViewController> old = std::exchange(rootViewController_, nullptr)) {
        if (shown) {
            old->beginAppearanceTransition(false, false);
        }
        if (old->isViewLoaded()) {
            UIApplication::sharedApplication().resignFirstResponderWithin(*old->view());
            old->view()->removeFromSuperview();
        }
        old->endAppearanceTransition();
    }
    rootViewController_ = std::move(controller);
    if (!rootViewController_) {
        return;
    }
    std::shared_ptr<UIView> view = rootViewController_->view();
    view->setFrame(bounds());
    view->setAutoresizingMask(UIViewAutoresizingFlexibleWidth | UIViewAutoresizingFlexibleHeight);
    addSubview(view);
    if (shown) {
        rootViewController_->beginAppearanceTransition(true, false);
        rootViewController_->endAppearanceTransition();
    }
}

void UIWindow::setHidden(bool hidden) {
    bool changed = hidden != isHidden();
    if (changed && hidden && !weak_from_this().expired()) {
        UIApplication::sharedApplication().resignFirstResponderWithin(*this);
    }
    UIView::setHidden(hidden);
    if (changed && !weak_from_this().expired()) {
        UIApplication::sharedApplication().windowDidChangeVisibility(
            std::static_pointer_cast<UIWindow>(shared_from_this()), !hidden);
    }
    if (changed && rootViewController_) {
        rootViewController_->beginAppearanceTransition(!hidden, false);
        rootViewController_->endAppearanceTransition();
    }
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
