#pragma once

#include "Kit/UIButton.h"

#include <memory>

namespace tarvik {

// The type of every button of the reporter's own (all made with the custom type), so that they
// can be told apart by class from the host's. It adds no behaviour.
class TVKButton : public UIButton {
    TVK_KIT_CLASS(TVKButton, UIButton)

  public:
    using UIButton::UIButton;
    static std::shared_ptr<TVKButton> buttonWithType(UIButtonType type);
};

}  // namespace tarvik
