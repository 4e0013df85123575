#pragma once

#include "Kit/UITextField.h"

namespace tarvik {

// The reporter's e-mail field: a text field under the SDK's own class name, which interaction
// tracking recognises.
class TVKTextField : public UITextField {
    TVK_KIT_CLASS(TVKTextField, UITextField)

  public:
    using UITextField::UITextField;
};

}  // namespace tarvik
