#pragma once

#include "Kit/NSObject.h"
#include "Kit/UITouch.h"

#include <memory>

namespace tarvik {

// An object in the responder chain: touches that a responder does not take go to its next
// responder (a view's superview).
class UIResponder : public NSObject {
    TVK_KIT_CLASS(UIResponder, NSObject)

  public:
    virtual std::shared_ptr<UIResponder> nextResponder() const { return nullptr; }

    // Touch reports. The base passes each to the next responder.
    virtual void touchesBegan(const UITouchSet& touches, const UIEvent& event);
    virtual void touchesMoved(const UITouchSet& touches, const UIEvent& event);
    virtual void touchesEnded(const UITouchSet& touches, const UIEvent& event);
    virtual void touchesCancelled(const UITouchSet& touches, const UIEvent& event);
};

}  // namespace tarvik
