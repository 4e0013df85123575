#pragma once

#include "Kit/NSObject.h"

#include <memory>

namespace tarvik {

// An object in the responder chain: touches and text input that a responder does not take go
// to its next responder (a view's superview, a window's application).
class UIResponder : public NSObject {
    TVK_KIT_CLASS(UIResponder, NSObject)

  public:
    virtual std::shared_ptr<UIResponder> nextResponder() const { return nullptr; }
};

}  // namespace tarvik
