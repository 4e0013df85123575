#include "Kit/UIResponder.h"

namespace tarvik {

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
