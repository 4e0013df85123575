#pragma once

#include "Kit/UIButton.h"
#include "Kit/UIImageView.h"
#include "Kit/UIViewController.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Orientation.h"
#include "Views/TVKButton.h"
#include "Views/TVKQuadDrawView.h"

#include <memory>
#include <optional>

namespace tarvik {

class TVKIssueSubmission;
class TVKReportSession;

// The reporter's first screen: the screenshot with the drawing canvas over it, a pen tool bar
// with four colours at the bottom left and a clear button at the bottom right, Cancel and Send
// in the navigation bar. It starts the issue submission as soon as it loads, so that the files
// are gathered while the user draws.
class TVKScreenshotViewController : public UIViewController, public TVKQuadDrawViewDelegate {
    TVK_KIT_CLASS(TVKScreenshotViewController, UIViewController)

  public:
    TVKScreenshotViewController();
    ~TVKScreenshotViewController() override;

    std::shared_ptr<TVKReportSession> reportSession() const { return reportSession_; }
    // Given before the view loads; its screenshot is what the user annotates.
    void setReportSession(std::shared_ptr<TVKReportSession> session);

    // The screen's parts, each built on first use and kept.
    std::shared_ptr<UIImageView> imageView();
    std::shared_ptr<TVKQuadDrawView> drawingView();
    std::shared_ptr<UIView> drawContainerView();
    std::shared_ptr<UIView> eraseContainerView();
    std::shared_ptr<TVKButton> blueColorButton();
    std::shared_ptr<TVKButton> greenColorButton();
    std::shared_ptr<TVKButton> redColorButton();
    std::shared_ptr<TVKButton> blackColorButton();
    std::shared_ptr<TVKButton> eraserButton();
    std::shared_ptr<TVKButton> cancelButton();
    std::shared_ptr<TVKButton> sendButton();

    std::shared_ptr<TVKIssueSubmission> currentSubmission() const { return currentSubmission_; }
    double aspectRatio() const { return aspectRatio_; }
    UIInterfaceOrientation oldStatusBarOrientation() const { return oldStatusBarOrientation_; }

    void viewDidLoad() override;
    void viewWillAppear(bool animated) override;
    bool prefersStatusBarHidden() const override { return false; }

    // Starts the submission and the gathering of its files.
    void createIssueSubmission();
    // The pen colour of a colour button, by identity; blue for any other button.
    Color colorForButton(const std::shared_ptr<UIButton>& button);
    void didTapColorOptionButton(const std::shared_ptr<UIButton>& button);
    void didTapEraseButton(const std::shared_ptr<UIButton>& button);
    void didTapCancelButton();
    void didTapSendButton();
    // The screenshot with the drawing burnt into it.
    std::optional<Image> takeScreenshot();
    void orientationDidChange();
    // Fits `view` to the screen with the aspect ratio measured at load, centred, unrounded.
    void updateScaleofView(const std::shared_ptr<UIView>& view);

    void quadDrawViewDidStartDrawing(TVKQuadDrawView& view) override;
    void quadDrawViewDidStopDrawing(TVKQuadDrawView& view) override;

  private:
    std::shared_ptr<TVKButton> makeColorButton(const Color& color);
    std::shared_ptr<UIView> makeToolBar(Rect frame, std::uint32_t autoresizing);
    std::shared_ptr<TVKButton> makeBarButton(const char* imageName, Selector action);
    // Where the tool bars go: `y` for both, with their x and size kept, on the drawing spring.
    void slideToolBarsTo(double y);

    std::shared_ptr<TVKReportSession> reportSession_;
    std::shared_ptr<UIImageView> imageView_;
    std::shared_ptr<TVKQuadDrawView> drawingView_;
    std::shared_ptr<UIView> drawContainerView_;
    std::shared_ptr<UIView> eraseContainerView_;
    std::shared_ptr<TVKButton> blueColorButton_;
    std::shared_ptr<TVKButton> greenColorButton_;
    std::shared_ptr<TVKButton> redColorButton_;
    std::shared_ptr<TVKButton> blackColorButton_;
    std::shared_ptr<TVKButton> eraserButton_;
    std::shared_ptr<TVKButton> cancelButton_;
    std::shared_ptr<TVKButton> sendButton_;
    std::shared_ptr<TVKIssueSubmission> currentSubmission_;
    double aspectRatio_ = 0;
    UIInterfaceOrientation oldStatusBarOrientation_ = UIInterfaceOrientationUnknown;
    NotificationCenter::Token orientationObserver_ = 0;
};

}  // namespace tarvik
