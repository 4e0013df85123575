#include "Views/TVKInstructionAlertView.h"

#include "Helpers/NSBundle+Tarvik.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/UIColor+Tarvik.h"
#include "Kit/CABasicAnimation.h"
#include "Kit/UIScreen.h"
#include "Platform/Runtime.h"
#include "Views/TVKOverlayWindow.h"

#include <tarvik/Tarvik.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <optional>

namespace tarvik {

namespace {

constexpr Size kCardSize{240, 287};
constexpr double kImageTop = 48;
constexpr double kGap = 24;
constexpr Size kMessageSize{192, 72};
constexpr double kButtonHeight = 48;
constexpr double kDelay = 3.0;
constexpr std::int64_t kDaysLimit = 30;

// Whole days from `date` to now, truncated towards zero; none without a date.
std::optional<std::int64_t> wholeDaysSince(const std::optional<Date>& date) {
    if (!date) {
        return std::nullopt;
    }
    std::chrono::duration<double> elapsed = Runtime::current().clock().now() - *date;
    return static_cast<std::int64_t>(elapsed.count() / 86400.0);
}

// More than 30 whole days ago; a missing date counts as long ago.
bool longerAgoThanTheLimit(const std::optional<Date>& date) {
    std::optional<std::int64_t> days = wholeDaysSince(date);
    return !days || *days > kDaysLimit;
}

// "Shake your device if you find a bug in the app" with "Shake" and the first "bug" in the
// accent blue; each piece is the host's translation.
NSAttributedString shakeMessage() {
    std::string shake = tarvik_localizedString("Shake");
    std::string bug = tarvik_localizedString("bug");
    std::string message = shake + " " + tarvik_localizedString("your device if you find a") + " " +
                          bug + " " + tarvik_localizedString("in the app");
    NSAttributedString text(message);
    TextAttributes blue;
    blue.foregroundColor = tarvik_drawBlueColor();
    text.addAttributes(blue, {0, utf16Length(shake)});
    NSRange bugRange = rangeOfString(message, bug);
    if (bugRange.location != NSNotFound) {
        text.addAttributes(blue, bugRange);
    }
    return text;
}

}  // namespace

std::shared_ptr<TVKInstructionAlertView> TVKInstructionAlertView::sharedInstance() {
    return Runtime::current().sharedInstance<TVKInstructionAlertView>();
}

bool TVKInstructionAlertView::shouldShowAlert() {
    std::int64_t count = TVKSettingsManager::presentedInstructionCount();
    if (longerAgoThanTheLimit(TVKSettingsManager::lastPresentedInstructionDate())) {
        count = 0;
    }
    std::int64_t limit =
        longerAgoThanTheLimit(TVKSettingsManager::firstPresentedInstructionDate()) ? 1 : 3;
    if (count >= limit) {
        return false;
    }
    // The date is only held in memory; the count's save writes it too.
    TVKSettingsManager::updateLastPresentedInstructionDate();
    TVKSettingsManager::setPresentedInstructionCount(count + 1);
    return true;
}

void TVKInstructionAlertView::show() {
    if (!shouldShowAlert()) {
        return;
    }
    MainQueue& mainQueue = Runtime::current().mainQueue();
    mainQueue.after(kDelay, [] {
        std::shared_ptr<TVKInstructionAlertView> alert = sharedInstance();
        alert->reset();
        std::shared_ptr<UIWindow> window = alert->window();
        std::shared_ptr<UIView> card = alert->containerView();
        window->addSubview(card);
        std::weak_ptr<TVKInstructionAlertView> weakAlert = alert;
        UIView::animateWithDuration(
            0.25, 0, 0.6, 3.0, UIViewAnimationOptionCurveEaseIn,
            [&] { card->setFrame(centredCardFrame(card->frame(), *window)); },
            [weakAlert](bool) {
                if (std::shared_ptr<TVKInstructionAlertView> alert = weakAlert.lock()) {
                    alert->vibrateImage();
                }
            });
        Runtime::current().mainQueue().after(kDelay, [weakAlert] {
            if (std::shared_ptr<TVKInstructionAlertView> alert = weakAlert.lock()) {
                alert->didTapDismissButton();
            }
        });
    });
}

void TVKInstructionAlertView::didTapDismissButton() {
    if (dismissing_) {
        return;
    }
    dismissing_ = true;
    std::shared_ptr<UIWindow> window = window_;
    std::weak_ptr<TVKInstructionAlertView> weakSelf =
        std::static_pointer_cast<TVKInstructionAlertView>(shared_from_this());
    UIView::animateWithDuration(
        0.25,
        [&] {
            if (window) {
                window->setAlpha(0);
            }
        },
        [weakSelf](bool) {
            std::shared_ptr<TVKInstructionAlertView> alert = weakSelf.lock();
            if (!alert || !alert->window_) {
                return;
            }
            alert->window_->setRootViewController(nullptr);
            alert->window_.reset();
        });
}

void TVKInstructionAlertView::reset() {
    window_.reset();
    containerView_.reset();
    imageView_.reset();
    messageLabel_.reset();
    separatorView_.reset();
    dismissButton_.reset();
}

void TVKInstructionAlertView::vibrateImage() {
    std::shared_ptr<CABasicAnimation> shake = CABasicAnimation::animationWithKeyPath("position.x");
    shake->setByValue(12);
    shake->setDuration(0.075);
    shake->setAutoreverses(true);
    shake->setRepeatCount(5);
    imageView()->layerAnimations().addAnimation(*shake, "Shake");
}

std::shared_ptr<UIWindow> TVKInstructionAlertView::window() {
    if (!window_) {
        window_ = makeOverlayWindow(true);
    }
    return window_;
}

std::shared_ptr<UIView> TVKInstructionAlertView::containerView() {
    if (!containerView_) {
        // The window's frame is the screen's bounds, turned or not.
        Size screen = UIScreen::mainScreen().bounds().size;
        containerView_ =
            std::make_shared<UIView>(Rect{{std::ceil((screen.width - kCardSize.width) / 2),
                                           std::ceil(screen.height + kCardSize.height)},
                                          kCardSize});
        containerView_->setBackgroundColor(Color::colorWithRed(1, 1, 1, 1));
        containerView_->setLayerStyle({std::nullopt, 0, 7.0});
        containerView_->setClipsToBounds(true);
        containerView_->addSubview(imageView());
        containerView_->addSubview(messageLabel());
        containerView_->addSubview(separatorView());
        containerView_->addSubview(dismissButton());
    }
    return containerView_;
}

std::shared_ptr<UIImageView> TVKInstructionAlertView::imageView() {
    if (!imageView_) {
        const char* name = Tarvik::sharedInstance().processType() == TarvikProcessTypeShake
                               ? "shake device illustration"
                               : "custom message illustration";
        imageView_ =
            std::make_shared<UIImageView>(UIImage::imageNamed(name, tarvik_frameworkBundle()));
        Size size = imageView_->frame().size;
        imageView_->setFrame({{(kCardSize.width - size.width) / 2, kImageTop}, size});
    }
    return imageView_;
}

std::shared_ptr<UILabel> TVKInstructionAlertView::messageLabel() {
    if (!messageLabel_) {
        Rect image = imageView()->frame();
        messageLabel_ = std::make_shared<UILabel>(Rect{
            {(kCardSize.width - kMessageSize.width) / 2, image.origin.y + image.size.height + kGap},
            kMessageSize});
        messageLabel_->setFont(UIFont::boldSystemFontOfSize(20.0));
        messageLabel_->setNumberOfLines(3);
        messageLabel_->setTextAlignment(NSTextAlignment::Center);
        messageLabel_->setTextColor(tarvik_darkTextColor());
        if (Tarvik::sharedInstance().processType() == TarvikProcessTypeShake) {
            messageLabel_->setAttributedText(shakeMessage());
        } else {
            messageLabel_->setText(
                tarvik_localizedString("Take a screenshot if you find a bug in the app"));
        }
    }
    return messageLabel_;
}

std::shared_ptr<UIView> TVKInstructionAlertView::separatorView() {
    if (!separatorView_) {
        Rect label = messageLabel()->frame();
        separatorView_ = std::make_shared<UIView>(
            Rect{{0, label.origin.y + label.size.height + kGap}, {kCardSize.width, 1}});
        separatorView_->setBackgroundColor(tarvik_drawContainerBorderColor());
    }
    return separatorView_;
}

std::shared_ptr<TVKButton> TVKInstructionAlertView::dismissButton() {
    if (!dismissButton_) {
        Rect separator = separatorView()->frame();
        dismissButton_ = TVKButton::buttonWithType(UIButtonTypeCustom);
        dismissButton_->setFrame(
            {{0, separator.origin.y + separator.size.height}, {kCardSize.width, kButtonHeight}});
        dismissButton_->setTitle(tarvik_localizedString("OK"), UIControlStateNormal);
        dismissButton_->setTitleColor(tarvik_drawBlueColor(), UIControlStateNormal);
        dismissButton_->titleLabel()->setFont(UIFont::systemFontOfSize(16.0));
        dismissButton_->addTarget(
            shared_from_this(),
            Selector::method("didTapDismissButton", &TVKInstructionAlertView::didTapDismissButton),
            UIControlEventTouchUpInside);
    }
    return dismissButton_;
}

std::vector<InstanceVariable> TVKInstructionAlertView::instanceVariablesDeclaredBy(
    const KitClass& kitClass) const {
    if (&kitClass != &staticClass()) {
        return NSObject::instanceVariablesDeclaredBy(kitClass);
    }
    return {{"_window", asObject(window_)},
            {"_containerView", asObject(containerView_)},
            {"_imageView", asObject(imageView_)},
            {"_messageLabel", asObject(messageLabel_)},
            {"_separatorView", asObject(separatorView_)},
            {"_dismissButton", asObject(dismissButton_)}};
}

}  // namespace tarvik
