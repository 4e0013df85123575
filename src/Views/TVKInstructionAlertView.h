#pragma once

#include "Kit/NSObject.h"
#include "Kit/UIImageView.h"
#include "Kit/UILabel.h"
#include "Kit/UIView.h"
#include "Kit/UIWindow.h"
#include "Views/TVKButton.h"

#include <memory>
#include <vector>

namespace tarvik {

// The card that tells the user how to start a report: shake the device (process type 0) or
// take a screenshot (any other type). It springs up from below the screen in a window of its
// own, 3 seconds after `show`, shakes its illustration, and closes by its OK button or by
// itself 3 seconds later. The settings file limits how often it shows (`shouldShowAlert`).
// Everything runs on the main queue.
class TVKInstructionAlertView : public NSObject {
    TVK_KIT_CLASS(TVKInstructionAlertView, NSObject)

  public:
    static std::shared_ptr<TVKInstructionAlertView> sharedInstance();

    // Does nothing when `shouldShowAlert` says no; otherwise, 3 seconds later on the main
    // queue, rebuilds the card, springs it to the middle of a new window and dismisses it 3
    // seconds after that unless OK was tapped.
    static void show();
    // Whether the card may show now, counting the showing in the settings when it may: at most
    // 3 times in the first 30 days after the settings file was made, then once more each time
    // more than 30 whole days have passed since the last. A missing date counts as long ago.
    static bool shouldShowAlert();

    // OK's action and the timer's: fades the window out over 0.25 s and drops it. Only the
    // first call does anything, for the life of the process (`dismissing` is never cleared).
    void didTapDismissButton();
    // Drops the window and every view, so that they are built afresh; `dismissing` stays.
    void reset();
    // Shakes the illustration sideways: 12 points, 0.075 s each way, 5 times (key "Shake").
    void vibrateImage();

    // Each built on first use and kept until `reset`.
    // The full-screen window under a dim veil, clipping, visible from its creation.
    std::shared_ptr<UIWindow> window();
    // The 240 x 287 white card with rounded corners, made below the bottom of the screen.
    std::shared_ptr<UIView> containerView();
    std::shared_ptr<UIImageView> imageView();
    std::shared_ptr<UILabel> messageLabel();
    std::shared_ptr<UIView> separatorView();
    std::shared_ptr<TVKButton> dismissButton();
    bool dismissing() const { return dismissing_; }

    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override;

  private:
    std::shared_ptr<UIWindow> window_;
    std::shared_ptr<UIView> containerView_;
    std::shared_ptr<UIImageView> imageView_;
    std::shared_ptr<UILabel> messageLabel_;
    std::shared_ptr<UIView> separatorView_;
    std::shared_ptr<TVKButton> dismissButton_;
    bool dismissing_ = false;
};

}  // namespace tarvik
