#pragma once

#include "Kit/NSObject.h"
#include "Kit/UIImageView.h"
#include "Kit/UILabel.h"
#include "Kit/UIView.h"
#include "Kit/UIWindow.h"

#include <memory>
#include <vector>

namespace tarvik {

// The card that says the feedback was sent: shown at once in the middle of a window of its
// own, faded out 3 seconds later. It has no button. The card is kept and shown again in a new
// window each time, any number of times. Everything runs on the main queue.
class TVKConfirmationAlertView : public NSObject {
    TVK_KIT_CLASS(TVKConfirmationAlertView, NSObject)

  public:
    static std::shared_ptr<TVKConfirmationAlertView> sharedInstance();

    // Puts the card in the middle of the window (made if there is none), then 3 seconds later
    // fades the window out over 0.25 s and drops it.
    static void show();

    // Each built on first use. The window is dropped after each showing, the views are kept.
    // The full-screen window under a dim veil, not clipping, visible from its creation.
    std::shared_ptr<UIWindow> window();
    // The 240 x 202 white card with rounded corners.
    std::shared_ptr<UIView> containerView();
    std::shared_ptr<UIImageView> imageView();
    std::shared_ptr<UILabel> messageLabel();

    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override;

  private:
    std::shared_ptr<UIWindow> window_;
    std::shared_ptr<UIView> containerView_;
    std::shared_ptr<UIImageView> imageView_;
    std::shared_ptr<UILabel> messageLabel_;
};

}  // namespace tarvik
