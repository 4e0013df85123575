#pragma once

#include "Kit/UINavigationController.h"

namespace tarvik {

// The reporter's navigation stack: rounded corners, a plain white bar without a hairline, bold
// dark titles and the reporter's own back arrow.
class TVKNavigationController : public UINavigationController {
    TVK_KIT_CLASS(TVKNavigationController, UINavigationController)

  public:
    using UINavigationController::UINavigationController;
    void viewDidLoad() override;
};

}  // namespace tarvik
