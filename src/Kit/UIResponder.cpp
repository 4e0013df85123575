#include "Kit/UIResponder.h"

#include "Kit/UIApplication.h"

namespace tarvik {

bool UIResponder::isFirstResponder() const {
    return UIApplication::sharedApplication().firstResponder().get() == this;
}

bool UIResponder::becomeFirstResponder() {
    if (isFirstResponder()) {
        return true;
    }
    if (!canBecomeFirstResponder()) {
        return false;
    }
    UIApplication& application = UIApplication::sharedApplication();
    if (std::shared_ptr<UIResponder> current = application.firstResponder()) {
        if (!current->resignFirstResponder()) {
            return false;
        }
    }
    application.setFirstResponder(std::static_pointer_cast<UIResponder>(shared_from_this()));
    return true;
}

bool UIResponder::resignFirstResponder() {
    if (!isFirstResponder()) {
        return true;
    }
    if (!canResignFirstResponder()) {
        return false;
    }
    UIApplication::sharedApplication().setFirstResponder(nullptr);
    return true;
}

void UIResponder::touchesBegan(const UITouchSet& touches, const UIEvent& event) {
    if (std::shared_ptr<UIResponder> next = nextResponder()) {
        next->touchesBegan(touches, event);
    }
}

void UIResponder::touchesMoved(const UITouchSet& touches, const UIEvent& event) {
    if (std::shared_ptr<UIResponder> next = nextResponder()) {
        next->touchesMoved(touches, event);
    }
}

void UIResponder::touchesEnded(const UITouchSet& touches, const UIEvent& event) {
    if (std::shared_ptr<UIResponder> next = nextResponder()) {
        next->touchesEnded(touches, event);
    }
}

void UIResponder::touchesCancelled(const UITouchSet& touches, const UIEvent& event) {
    if (std::shared_ptr<UIResponder> next = nextResponder()) {
        next->touchesCancelled(touches, event);
    }
}

}  // namespace tarvik
