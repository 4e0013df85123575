#include "Views/TVKScreenshotViewController.h"

#include "Helpers/NSBundle+Tarvik.h"
#include "Helpers/UIColor+Tarvik.h"
#include "Helpers/UIImage+Tarvik.h"
#include "Kit/UIApplication.h"
#include "Kit/UIBarButtonItem.h"
#include "Kit/UINavigationController.h"
#include "Kit/UINavigationItem.h"
#include "Models/TVKIssueSubmission.h"
#include "Models/TVKReportSession.h"
#include "Platform/Runtime.h"
#include "Platform/SystemNotifications.h"
#include "Views/TVKCommentsTableViewController.h"

#include <tarvik/TarvikConstants.h>

namespace tarvik {

namespace {

constexpr double kToolBarHeight = 48;
constexpr double kToolBarMargin = 8;
constexpr double kColorButtonSide = 32;
constexpr double kColorButtonSpacing = 4;
constexpr double kDiscDiameter = 24.0;
// How long the interface takes to finish turning before its orientation is read.
constexpr double kRotationSettleDelay = 0.2;

std::optional<UIImage> imageNamed(const char* name) {
    return UIImage::imageNamed(name, tarvik_frameworkBundle());
}

std::optional<UIImage> asUIImage(std::optional<Image> image) {
    return image ? std::optional<UIImage>(UIImage(std::move(*image))) : std::nullopt;
}

void setLayer(UIView& view, Color borderColor, double cornerRadius) {
    view.setLayerStyle(
        {.borderColor = borderColor, .borderWidth = 1.0, .cornerRadius = cornerRadius});
}

}  // namespace

TVKScreenshotViewController::TVKScreenshotViewController() {
    setTitle(tarvik_localizedString("Circle the Problem"));
    orientationObserver_ = Runtime::current().notificationCenter().addObserver(
        UIDeviceOrientationDidChangeNotification,
        [this](const Notification&) { orientationDidChange(); });
}

TVKScreenshotViewController::~TVKScreenshotViewController() {
    Runtime::current().notificationCenter().removeObserver(orientationObserver_);
}

void TVKScreenshotViewController::setReportSession(std::shared_ptr<TVKReportSession> session) {
    reportSession_ = std::move(session);
}

std::shared_ptr<UIImageView> TVKScreenshotViewController::imageView() {
    if (!imageView_) {
        Size screen = view()->frame().size;
        imageView_ =
            std::make_shared<UIImageView>(Rect{{16, 0}, {screen.width - 32, screen.height}});
        if (reportSession_ && reportSession_->screenshot()) {
            imageView_->setImage(UIImage(*reportSession_->screenshot()));
        }
        setLayer(*imageView_, tarvik_screenshotBorderColor(), 0);
    }
    return imageView_;
}

std::shared_ptr<TVKQuadDrawView> TVKScreenshotViewController::drawingView() {
    if (!drawingView_) {
        drawingView_ = std::make_shared<TVKQuadDrawView>(imageView()->frame());
        drawingView_->setDelegate(
            std::static_pointer_cast<TVKScreenshotViewController>(shared_from_this()));
    }
    return drawingView_;
}

std::shared_ptr<UIView> TVKScreenshotViewController::makeToolBar(Rect frame,
                                                                 std::uint32_t autoresizing) {
    auto bar = std::make_shared<UIView>(frame);
    bar->setBackgroundColor(Color::colorWithRed(1, 1, 1, 1));
    setLayer(*bar, tarvik_drawContainerBorderColor(), 8.0);
    bar->setClipsToBounds(true);
    bar->setAutoresizingMask(autoresizing);
    return bar;
}

std::shared_ptr<UIView> TVKScreenshotViewController::drawContainerView() {
    if (!drawContainerView_) {
        Size screen = view()->frame().size;
        drawContainerView_ = makeToolBar(
            {{kToolBarMargin, screen.height - (kToolBarHeight + kToolBarMargin)},
             {196, kToolBarHeight}},
            UIViewAutoresizingFlexibleRightMargin | UIViewAutoresizingFlexibleTopMargin);
        auto pen = std::make_shared<UIImageView>(Rect{{8, 8}, {32, 32}});
        pen->setImage(imageNamed("write"));
        pen->setContentMode(UIViewContentModeCenter);
        drawContainerView_->addSubview(pen);
        double x = 8 + kColorButtonSide + kColorButtonSpacing;
        for (const std::shared_ptr<TVKButton>& button :
             {blueColorButton(), greenColorButton(), redColorButton(), blackColorButton()}) {
            button->setFrame({{x, 8}, {kColorButtonSide, kColorButtonSide}});
            drawContainerView_->addSubview(button);
            x += kColorButtonSide + kColorButtonSpacing;
        }
    }
    return drawContainerView_;
}

std::shared_ptr<UIView> TVKScreenshotViewController::eraseContainerView() {
    if (!eraseContainerView_) {
        Size screen = view()->frame().size;
        eraseContainerView_ =
            makeToolBar({{screen.width - (kToolBarHeight + kToolBarMargin),
                          screen.height - (kToolBarHeight + kToolBarMargin)},
                         {kToolBarHeight, kToolBarHeight}},
                        UIViewAutoresizingFlexibleLeftMargin | UIViewAutoresizingFlexibleTopMargin);
        std::shared_ptr<TVKButton> eraser = eraserButton();
        eraser->setFrame(eraseContainerView_->bounds());
        eraseContainerView_->addSubview(eraser);
    }
    return eraseContainerView_;
}

std::shared_ptr<TVKButton> TVKScreenshotViewController::makeColorButton(const Color& color) {
    std::shared_ptr<TVKButton> button = TVKButton::buttonWithType(UIButtonTypeCustom);
    button->setImage(asUIImage(tarvik_circleImageWithColor(color, kDiscDiameter)),
                     UIControlStateNormal);
    button->addTarget(shared_from_this(),
                      Selector::method("didTapColorOptionButton:",
                                       &TVKScreenshotViewController::didTapColorOptionButton),
                      UIControlEventTouchUpInside);
    return button;
}

std::shared_ptr<TVKButton> TVKScreenshotViewController::blueColorButton() {
    if (!blueColorButton_) {
        blueColorButton_ = makeColorButton(tarvik_drawBlueColor());
    }
    return blueColorButton_;
}

std::shared_ptr<TVKButton> TVKScreenshotViewController::greenColorButton() {
    if (!greenColorButton_) {
        greenColorButton_ = makeColorButton(tarvik_drawGreenColor());
    }
    return greenColorButton_;
}

std::shared_ptr<TVKButton> TVKScreenshotViewController::redColorButton() {
    if (!redColorButton_) {
        redColorButton_ = makeColorButton(tarvik_drawRedColor());
    }
    return redColorButton_;
}

std::shared_ptr<TVKButton> TVKScreenshotViewController::blackColorButton() {
    if (!blackColorButton_) {
        blackColorButton_ = makeColorButton(tarvik_drawBlackColor());
    }
    return blackColorButton_;
}

std::shared_ptr<TVKButton> TVKScreenshotViewController::eraserButton() {
    if (!eraserButton_) {
        eraserButton_ = TVKButton::buttonWithType(UIButtonTypeCustom);
        eraserButton_->setImage(imageNamed("erase"), UIControlStateNormal);
        eraserButton_->addTarget(
            shared_from_this(),
            Selector::method("didTapEraseButton:", &TVKScreenshotViewController::didTapEraseButton),
            UIControlEventTouchUpInside);
    }
    return eraserButton_;
}

std::shared_ptr<TVKButton> TVKScreenshotViewController::makeBarButton(const char* imageName,
                                                                      Selector action) {
    std::shared_ptr<TVKButton> button = TVKButton::buttonWithType(UIButtonTypeCustom);
    std::optional<UIImage> image = imageNamed(imageName);
    if (image) {
        // Drawn in its own colours, whatever the bar's tint.
        image = image->imageWithRenderingMode(UIImageRenderingModeAlwaysOriginal);
    }
    button->setImage(image, UIControlStateNormal);
    button->sizeToFit();
    button->addTarget(shared_from_this(), std::move(action), UIControlEventTouchUpInside);
    return button;
}

std::shared_ptr<TVKButton> TVKScreenshotViewController::cancelButton() {
    if (!cancelButton_) {
        cancelButton_ = makeBarButton(
            "close", Selector::method("didTapCancelButton",
                                      &TVKScreenshotViewController::didTapCancelButton));
    }
    return cancelButton_;
}

std::shared_ptr<TVKButton> TVKScreenshotViewController::sendButton() {
    if (!sendButton_) {
        sendButton_ = makeBarButton(
            "foward active",
            Selector::method("didTapSendButton", &TVKScreenshotViewController::didTapSendButton));
    }
    return sendButton_;
}

void TVKScreenshotViewController::viewDidLoad() {
    UIViewController::viewDidLoad();
    view()->setBackgroundColor(Color::colorWithRed(1, 1, 1, 1));
    view()->addSubview(imageView());
    // What the next screen's back item would show: nothing but the arrow.
    navigationItem()->setBackBarButtonItem(
        UIBarButtonItem::initWithTitle("", UIBarButtonItemStylePlain, nullptr, std::nullopt));
    navigationItem()->setRightBarButtonItem(UIBarButtonItem::initWithCustomView(sendButton()));
    navigationItem()->setLeftBarButtonItem(UIBarButtonItem::initWithCustomView(cancelButton()));
    view()->addSubview(drawingView());
    view()->addSubview(drawContainerView());
    view()->addSubview(eraseContainerView());
    didTapColorOptionButton(blueColorButton());
    createIssueSubmission();
    Rect frame = imageView()->frame();
    aspectRatio_ = frame.size.width / frame.size.height;
    oldStatusBarOrientation_ = UIApplication::sharedApplication().statusBarOrientation();
}

void TVKScreenshotViewController::viewWillAppear(bool animated) {
    UIViewController::viewWillAppear(animated);
    updateScaleofView(imageView());
    updateScaleofView(drawingView());
}

void TVKScreenshotViewController::createIssueSubmission() {
    currentSubmission_ = TVKIssueSubmission::create();
    currentSubmission_->saveApplicationIcon();
    MainQueue& mainQueue = Runtime::current().mainQueue();
    currentSubmission_->copyAllFilesWithCompletionHandler(
        [&mainQueue](const std::shared_ptr<TVKSubmission>& gathered) {
            auto issue = std::static_pointer_cast<TVKIssueSubmission>(gathered);
            // The form's submit and this completion each check what the other sets: both run
            // on the main queue, so exactly one of them ends the session.
            mainQueue.async([issue] {
                issue->setFinishedCopyingFiles(true);
                if (issue->comments()) {
                    Runtime::current().notificationCenter().post(
                        TarvikNotificationDidFinishCaptureSession, issue);
                }
            });
        });
}

Color TVKScreenshotViewController::colorForButton(const std::shared_ptr<UIButton>& button) {
    if (button == greenColorButton_) {
        return tarvik_drawGreenColor();
    }
    if (button == redColorButton_) {
        return tarvik_drawRedColor();
    }
    if (button == blackColorButton_) {
        return tarvik_drawBlackColor();
    }
    return tarvik_drawBlueColor();
}

void TVKScreenshotViewController::didTapColorOptionButton(const std::shared_ptr<UIButton>& button) {
    drawingView()->setStrokeColor(colorForButton(button));
    std::optional<Image> tick;
    for (const std::shared_ptr<TVKButton>& option :
         {blueColorButton(), greenColorButton(), redColorButton(), blackColorButton()}) {
        std::optional<Image> disc =
            tarvik_circleImageWithColor(colorForButton(option), kDiscDiameter);
        if (disc && option == button) {
            if (!tick) {
                std::optional<UIImage> checkmark = imageNamed("check white");
                tick = checkmark ? std::optional<Image>(checkmark->bitmap()) : std::nullopt;
            }
            disc = tarvik_addImage(*disc, tick);
        }
        option->setImage(asUIImage(disc), UIControlStateNormal);
    }
}

void TVKScreenshotViewController::didTapEraseButton(const std::shared_ptr<UIButton>&) {
    drawingView()->reset();
}

void TVKScreenshotViewController::didTapCancelButton() {
    if (currentSubmission_) {
        currentSubmission_->removeFromPending();
    }
    Runtime::current().notificationCenter().post(TarvikNotificationDidFinishCaptureSession);
}

void TVKScreenshotViewController::didTapSendButton() {
    std::optional<Image> annotated = takeScreenshot();
    if (reportSession_) {
        reportSession_->setScreenshot(annotated ? std::make_shared<const Image>(*annotated)
                                                : nullptr);
    }
    auto comments = std::make_shared<TVKCommentsTableViewController>();
    comments->setReportSession(reportSession_);
    comments->setCurrentIssueSubmission(currentSubmission_);
    if (std::shared_ptr<UINavigationController> navigation = navigationController()) {
        navigation->pushViewController(comments, true);
    }
}

std::optional<Image> TVKScreenshotViewController::takeScreenshot() {
    const std::optional<UIImage>& captured = imageView()->image();
    if (!captured) {
        return std::nullopt;
    }
    return tarvik_ImageByScalingAndCombiningImage(captured->bitmap(), drawingView()->drawnImage());
}

void TVKScreenshotViewController::orientationDidChange() {
    std::weak_ptr<NSObject> weakSelf = weak_from_this();
    Runtime::current().mainQueue().after(kRotationSettleDelay, [weakSelf] {
        auto self = std::static_pointer_cast<TVKScreenshotViewController>(weakSelf.lock());
        if (!self) {
            return;
        }
        UIInterfaceOrientation now = UIApplication::sharedApplication().statusBarOrientation();
        if (now == self->oldStatusBarOrientation_) {
            return;  // face up, face down, or a turn the interface does not follow
        }
        self->oldStatusBarOrientation_ = now;
        self->drawingView()->reset();
        self->updateScaleofView(self->imageView());
        self->updateScaleofView(self->drawingView());
    });
}

void TVKScreenshotViewController::updateScaleofView(const std::shared_ptr<UIView>& fitted) {
    Size current = fitted->bounds().size;
    Size screen = view()->frame().size;
    Size size = current;
    if (current.width > current.height) {
        size.width = screen.width;
        size.height = size.width / aspectRatio_;
    } else if (current.height > current.width) {
        size.height = screen.height;
        size.width = size.height * aspectRatio_;
    }
    fitted->setFrame({{(screen.width - size.width) / 2, (screen.height - size.height) / 2}, size});
    fitted->setNeedsDisplay();
}

void TVKScreenshotViewController::slideToolBarsTo(double y) {
    std::shared_ptr<UIView> pens = drawContainerView();
    std::shared_ptr<UIView> eraser = eraseContainerView();
    UIView::animateWithDuration(0.6, 0, 0.68, 0, 0, [&] {
        for (const std::shared_ptr<UIView>& bar : {pens, eraser}) {
            Rect frame = bar->frame();
            frame.origin.y = y;
            bar->setFrame(frame);
        }
    });
}

void TVKScreenshotViewController::quadDrawViewDidStartDrawing(TVKQuadDrawView&) {
    // Out of the finger's way, below the bottom edge, while it draws.
    slideToolBarsTo(view()->frame().size.height + 100);
}

void TVKScreenshotViewController::quadDrawViewDidStopDrawing(TVKQuadDrawView&) {
    slideToolBarsTo(view()->frame().size.height - (kToolBarHeight + kToolBarMargin));
}

}  // namespace tarvik
