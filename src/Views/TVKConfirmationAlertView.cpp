#include "Views/TVKConfirmationAlertView.h"

#include "Helpers/NSBundle+Tarvik.h"
#include "Helpers/UIColor+Tarvik.h"
#include "Kit/UIApplication.h"
#include "Kit/UIScreen.h"
#include "Platform/Runtime.h"
#include "Views/TVKOverlayWindow.h"

#include <cmath>

namespace tarvik {

namespace {

constexpr Size kCardSize{240, 202};
constexpr double kImageTop = 48;
constexpr double kGap = 24;
constexpr Size kMessageSize{140, 48};
constexpr double kDelay = 3.0;

// The middle of a window whose frame has `sides` (the upright screen's), in whole points:
// x = ceil((width - 240) / 2), y = ceil((height - 202) / 2), from the sides swapped when the
// interface is landscape and the window turned.
Point centredOrigin(Size sides) {
    if (UIInterfaceOrientationIsLandscape(
            UIApplication::sharedApplication().statusBarOrientation())) {
        sides = {sides.height, sides.width};
    }
    return {std::ceil((sides.width - kCardSize.width) / 2),
            std::ceil((sides.height - kCardSize.height) / 2)};
}

}  // namespace

std::shared_ptr<TVKConfirmationAlertView> TVKConfirmationAlertView::sharedInstance() {
    return Runtime::current().sharedInstance<TVKConfirmationAlertView>();
}

void TVKConfirmationAlertView::show() {
    std::shared_ptr<TVKConfirmationAlertView> alert = sharedInstance();
    std::shared_ptr<UIWindow> window = alert->window();
    std::shared_ptr<UIView> card = alert->containerView();
    // The card is kept between showings, and the interface may have turned since the last.
    card->setFrame({centredOrigin(window->frame().size), kCardSize});
    window->addSubview(card);
    std::weak_ptr<TVKConfirmationAlertView> weakAlert = alert;
    Runtime::current().mainQueue().after(kDelay, [weakAlert] {
        std::shared_ptr<TVKConfirmationAlertView> alert = weakAlert.lock();
        // A showing during an earlier one shares its window, which that one's fade dropped.
        if (!alert || !alert->window_) {
            return;
        }
        std::shared_ptr<UIWindow> window = alert->window_;
        std::shared_ptr<UIView> card = alert->containerView();
        std::weak_ptr<UIWindow> faded = window;
        UIView::animateWithDuration(
            0.25,
            [&] {
                window->setAlpha(0);
                card->setFrame(centredCardFrame(card->frame(), *window));
            },
            [weakAlert, faded](bool) {
                std::shared_ptr<TVKConfirmationAlertView> alert = weakAlert.lock();
                if (!alert || !alert->window_ || alert->window_ != faded.lock()) {
                    return;
                }
                alert->window_->setRootViewController(nullptr);
                alert->window_.reset();
            });
    });
}

std::shared_ptr<UIWindow> TVKConfirmationAlertView::window() {
    if (!window_) {
        window_ = makeOverlayWindow(false);
    }
    return window_;
}

std::shared_ptr<UIView> TVKConfirmationAlertView::containerView() {
    if (!containerView_) {
        // The window's frame is the screen's bounds, turned or not.
        containerView_ = std::make_shared<UIView>(
            Rect{centredOrigin(UIScreen::mainScreen().bounds().size), kCardSize});
        containerView_->setBackgroundColor(Color::colorWithRed(1, 1, 1, 1));
        containerView_->setLayerStyle({std::nullopt, 0, 7.0});
        containerView_->setClipsToBounds(true);
        containerView_->addSubview(imageView());
        containerView_->addSubview(messageLabel());
    }
    return containerView_;
}

std::shared_ptr<UIImageView> TVKConfirmationAlertView::imageView() {
    if (!imageView_) {
        imageView_ = std::make_shared<UIImageView>(
            UIImage::imageNamed("sent illustration", tarvik_frameworkBundle()));
        Size size = imageView_->frame().size;
        imageView_->setFrame({{std::ceil((kCardSize.width - size.width) / 2), kImageTop}, size});
    }
    return imageView_;
}

std::shared_ptr<UILabel> TVKConfirmationAlertView::messageLabel() {
    if (!messageLabel_) {
        Rect image = imageView()->frame();
        messageLabel_ =
            std::make_shared<UILabel>(Rect{{std::ceil((kCardSize.width - kMessageSize.width) / 2),
                                            image.origin.y + image.size.height + kGap},
                                           kMessageSize});
        messageLabel_->setFont(UIFont::boldSystemFontOfSize(20.0));
        messageLabel_->setNumberOfLines(2);
        messageLabel_->setTextAlignment(NSTextAlignment::Center);
        messageLabel_->setTextColor(tarvik_drawBlueColor());
        messageLabel_->setText(tarvik_localizedString("Your feedback was sent"));
    }
    return messageLabel_;
}

std::vector<InstanceVariable> TVKConfirmationAlertView::instanceVariablesDeclaredBy(
    const KitClass& kitClass) const {
    if (&kitClass != &staticClass()) {
        return NSObject::instanceVariablesDeclaredBy(kitClass);
    }
    return {{"_window", asObject(window_)},
            {"_containerView", asObject(containerView_)},
            {"_imageView", asObject(imageView_)},
            {"_messageLabel", asObject(messageLabel_)}};
}

}  // namespace tarvik
