#include "Views/TVKCommentsTableViewController.h"

#include <tarvik/TarvikConstants.h>

#include "Helpers/NSBundle+Tarvik.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/UIColor+Tarvik.h"
#include "Kit/NSString.h"
#include "Kit/UIAlertController.h"
#include "Kit/UILabel.h"
#include "Kit/UINavigationController.h"
#include "Kit/UIScreen.h"
#include "Models/TVKIssueSubmission.h"
#include "Models/TVKReportSession.h"
#include "Platform/Image.h"
#include "Platform/Runtime.h"
#include "Platform/SystemNotifications.h"
#include "Views/TVKTextFieldCell.h"
#include "Views/TVKTextViewCell.h"

#include <algorithm>

namespace tarvik {

namespace {

constexpr double kRepositionDuration = 0.3;
constexpr double kThumbnailMargin = 16;

UIFont formFont() {
    return *UIFont::fontWithName("HelveticaNeue", 16.0);
}

// One of the SDK's images, drawn in its own colours whatever the button.
std::optional<UIImage> originalImageNamed(const std::string& name) {
    std::optional<UIImage> image = UIImage::imageNamed(name, tarvik_frameworkBundle());
    if (!image) {
        return std::nullopt;
    }
    return image->imageWithRenderingMode(UIImageRenderingModeAlwaysOriginal);
}

bool isNonEmpty(const std::optional<std::string>& text) {
    return text && !text->empty();
}

}  // namespace

TVKCommentsTableViewController::TVKCommentsTableViewController()
    : UITableViewController(UITableViewStyleGrouped) {
    setTitle(tarvik_localizedString("Describe the Problem"));
    subscribeToOrientationChanges();
}

TVKCommentsTableViewController::~TVKCommentsTableViewController() {
    NotificationCenter& center = Runtime::current().notificationCenter();
    for (NotificationCenter::Token token : orientationObservers_) {
        center.removeObserver(token);
    }
}

void TVKCommentsTableViewController::subscribeToOrientationChanges() {
    // The destructor unsubscribes, so the handler never outlives the controller.
    orientationObservers_.push_back(Runtime::current().notificationCenter().addObserver(
        UIDeviceOrientationDidChangeNotification,
        [this](const Notification&) { orientationDidChange(); }));
}

void TVKCommentsTableViewController::setReportSession(std::shared_ptr<TVKReportSession> session) {
    reportSession_ = std::move(session);
}

void TVKCommentsTableViewController::setCurrentIssueSubmission(
    std::shared_ptr<TVKIssueSubmission> submission) {
    currentIssueSubmission_ = std::move(submission);
}

// MARK: - Controls

std::shared_ptr<TVKTextField> TVKCommentsTableViewController::emailField() {
    if (emailField_) {
        return emailField_;
    }
    auto field = std::make_shared<TVKTextField>();
    UITextInputTraits& traits = field->inputTraits();
    traits.keyboardType = UIKeyboardType::EmailAddress;
    traits.returnKeyType = UIReturnKeyType::Next;
    traits.autocorrectionType = UITextAutocorrectionType::No;
    traits.autocapitalizationType = UITextAutocapitalizationType::None;
    field->setDelegate(std::dynamic_pointer_cast<UITextFieldDelegate>(shared_from_this()));
    field->setFont(formFont());
    field->setTextColor(tarvik_darkTextColor());
    field->setAttributedPlaceholder(
        NSAttributedString(tarvik_localizedString("Your email address..."),
                           {.foregroundColor = tarvik_placeholderTextColor()}));

    // The text starts 16 points in, behind an empty spacer.
    field->setLeftView(std::make_shared<UIView>(Rect{{0, 0}, {16, 1}}));
    field->setLeftViewMode(UITextFieldViewMode::Always);

    auto optional = std::make_shared<UILabel>(Rect{{0, 0}, {70, 20}});
    optional->setText(tarvik_localizedString("optional"));
    optional->setTextColor(tarvik_placeholderTextColor());
    optional->setFont(formFont());
    field->setRightView(optional);
    field->setRightViewMode(UITextFieldViewMode::UnlessEditing);

    emailField_ = field;
    return emailField_;
}

std::shared_ptr<TVKTextView> TVKCommentsTableViewController::commentsView() {
    if (commentsView_) {
        return commentsView_;
    }
    auto view = std::make_shared<TVKTextView>();
    view->inputTraits().keyboardType = UIKeyboardType::Default;
    // The font first: the placeholder takes the view's font when it is set.
    view->setFont(formFont());
    view->setTextColor(tarvik_darkTextColor());
    view->setDelegate(std::dynamic_pointer_cast<UITextViewDelegate>(shared_from_this()));
    view->setLineFragmentPadding(0);
    view->setTextContainerInset({0, 0, 0, 20});
    view->setPlaceholder(tarvik_localizedString("Description of the problem"));
    commentsView_ = view;
    return commentsView_;
}

std::shared_ptr<TVKButton> TVKCommentsTableViewController::screenshotButton() {
    // Its place depends on the view's height. Loading the view runs viewDidLoad, which makes
    // the button itself.
    std::shared_ptr<UIView> formView = view();
    if (screenshotButton_) {
        return screenshotButton_;
    }
    auto button = TVKButton::buttonWithType(UIButtonTypeCustom);
    std::shared_ptr<const Image> screenshot =
        reportSession_ ? reportSession_->screenshot() : nullptr;
    if (screenshot) {
        button->setBackgroundImage(UIImage(*screenshot), UIControlStateNormal);
    }
    button->setLayerStyle(
        {.borderColor = tarvik_screenshotBorderColor(), .borderWidth = 1.0, .cornerRadius = 8.0});
    button->setClipsToBounds(true);
    button->addTarget(shared_from_this(),
                      Selector::method("didTapScreenshotButton",
                                       &TVKCommentsTableViewController::didTapScreenshotButton),
                      UIControlEventTouchUpInside);
    const bool landscape = screenshot && screenshot->width() > screenshot->height();
    const Size size = landscape ? kLandscapeThumbnailSize : kPortraitThumbnailSize;
    const double viewHeight = formView->frame().size.height;
    thumbnailRestingY_ = viewHeight - (size.height + kThumbnailMargin);
    button->setFrame({{kThumbnailMargin, thumbnailRestingY_}, size});
    screenshotButton_ = button;
    return screenshotButton_;
}

std::shared_ptr<TVKButton> TVKCommentsTableViewController::submitButton() {
    if (!submitButton_) {
        submitButton_ = TVKButton::buttonWithType(UIButtonTypeCustom);
        submitButton_->setImage(originalImageNamed("write active"), UIControlStateNormal);
        submitButton_->addTarget(
            shared_from_this(),
            Selector::method("didTapSubmitButton",
                             &TVKCommentsTableViewController::didTapSubmitButton),
            UIControlEventTouchUpInside);
        submitButton_->sizeToFit();
    }
    return submitButton_;
}

std::shared_ptr<TVKButton> TVKCommentsTableViewController::backButton() {
    if (!backButton_) {
        backButton_ = TVKButton::buttonWithType(UIButtonTypeCustom);
        backButton_->setImage(originalImageNamed("back"), UIControlStateNormal);
        backButton_->addTarget(
            shared_from_this(),
            Selector::method("didTapBackButton", &TVKCommentsTableViewController::didTapBackButton),
            UIControlEventTouchUpInside);
        backButton_->sizeToFit();
    }
    return backButton_;
}

// MARK: - Life cycle

void TVKCommentsTableViewController::viewDidLoad() {
    UITableViewController::viewDidLoad();
    std::shared_ptr<UITableView> table = tableView();
    table->setScrollEnabled(true);
    table->setContentInset({-35, 0, 0, 0});
    table->setSeparatorStyle(UITableViewCellSeparatorStyleNone);
    table->setBackgroundColor(Color::colorWithRed(1, 1, 1, 1));

    if (std::shared_ptr<UINavigationController> navigation = navigationController()) {
        navigation->view()->addSubview(screenshotButton());
    }

    table->registerClass<TVKTextFieldCell>(TVKTextFieldCell::reuseIdentifier());
    table->registerClass<TVKTextViewCell>(TVKTextViewCell::reuseIdentifier());

    navigationItem()->setRightBarButtonItem(UIBarButtonItem::initWithCustomView(submitButton()));
    navigationItem()->setLeftBarButtonItem(UIBarButtonItem::initWithCustomView(backButton()));

    // The session's e-mail (typed earlier in this report) before the one remembered from
    // earlier launches.
    const std::optional<std::string> storedEmail = TVKSettingsManager::userEmail();
    const std::optional<std::string> sessionEmail =
        reportSession_ ? reportSession_->email() : std::nullopt;
    if (isNonEmpty(sessionEmail)) {
        emailField()->setText(*sessionEmail);
    } else if (storedEmail) {
        emailField()->setText(*storedEmail);
    }
    const std::optional<std::string> sessionComments =
        reportSession_ ? reportSession_->comments() : std::nullopt;
    if (isNonEmpty(sessionComments)) {
        commentsView()->setText(*sessionComments);
    }
    emailField()->setText(stringByTrimmingWhitespaceAndNewlineCharacters(emailField()->text()));
    commentsView()->setText(stringByTrimmingWhitespaceAndNewlineCharacters(commentsView()->text()));

    // A second subscription, as designed; harmless, since the handler only hides a view.
    subscribeToOrientationChanges();
}

void TVKCommentsTableViewController::viewDidAppear(bool animated) {
    UITableViewController::viewDidAppear(animated);
    emailField()->becomeFirstResponder();
}

void TVKCommentsTableViewController::viewWillDisappear(bool animated) {
    UITableViewController::viewWillDisappear(animated);
    screenshotButton()->removeFromSuperview();
}

// MARK: - Table

long TVKCommentsTableViewController::numberOfRowsInSection(UITableView&, long) {
    return 2;
}

std::shared_ptr<UITableViewCell> TVKCommentsTableViewController::cellForRowAtIndexPath(
    UITableView& tableView, const NSIndexPath& indexPath) {
    if (indexPath.row == 0) {
        auto cell =
            std::static_pointer_cast<TVKTextFieldCell>(tableView.dequeueReusableCellWithIdentifier(
                TVKTextFieldCell::reuseIdentifier(), indexPath));
        cell->setTextField(emailField());
        return cell;
    }
    auto cell = std::static_pointer_cast<TVKTextViewCell>(
        tableView.dequeueReusableCellWithIdentifier(TVKTextViewCell::reuseIdentifier(), indexPath));
    cell->setTextView(commentsView());
    return cell;
}

std::optional<double> TVKCommentsTableViewController::heightForRowAtIndexPath(
    UITableView&, const NSIndexPath& indexPath) {
    if (indexPath.row == 0) {
        return TVKTextFieldCell::rowHeight();
    }
    // On a short screen the description leaves room for the keyboard and the e-mail row.
    const double height =
        std::min(TVKTextViewCell::rowHeight(),
                 UIScreen::mainScreen().bounds().size.height - kReservedScreenHeight);
    std::shared_ptr<TVKButton> thumbnail = screenshotButton();
    if (height < 2 * thumbnail->frame().size.height) {
        thumbnail->setHidden(true);
    }
    return height;
}

// MARK: - Text field

bool TVKCommentsTableViewController::textFieldShouldReturn(UITextField&) {
    // "Next": on to the description; the form is never submitted from the keyboard.
    commentsView()->becomeFirstResponder();
    return false;
}

bool TVKCommentsTableViewController::shouldChangeCharactersInRange(UITextField& textField,
                                                                   NSRange range,
                                                                   const std::string& replacement) {
    if (reportSession_) {
        reportSession_->setEmail(
            stringByReplacingCharactersInRange(textField.text(), range, replacement));
    }
    return true;
}

void TVKCommentsTableViewController::textFieldDidBeginEditing(UITextField&) {
    repositionScreenshotButtonWithOffset(-kTextFieldOffset);
}

void TVKCommentsTableViewController::textFieldDidEndEditing(UITextField&) {
    repositionScreenshotButtonWithOffset(kTextFieldOffset);
}

// MARK: - Text view

bool TVKCommentsTableViewController::shouldChangeTextInRange(UITextView& textView, NSRange range,
                                                             const std::string& replacement) {
    if (reportSession_) {
        reportSession_->setComments(
            stringByReplacingCharactersInRange(textView.text(), range, replacement));
    }
    // The text's extent (as the view's text is when asked, before this change), where the
    // description lies on screen: the thumbnail goes for good once the two meet.
    std::shared_ptr<UINavigationController> navigation = navigationController();
    std::shared_ptr<UIView> container = textView.superview();
    if (navigation && container) {
        Rect textFrame = container->convertRectToView(textView.frame(), navigation->view().get());
        textFrame.size.height =
            TVKTextViewCell::rowHeightForText(textView.text(), textView.frame().size.width);
        std::shared_ptr<TVKButton> thumbnail = screenshotButton();
        if (rectIntersectsRect(textFrame, thumbnail->frame())) {
            thumbnail->setHidden(true);
        }
    }
    return true;
}

void TVKCommentsTableViewController::textViewDidBeginEditing(UITextView&) {
    repositionScreenshotButtonWithOffset(-kTextViewOffset);
}

void TVKCommentsTableViewController::textViewDidEndEditing(UITextView&) {
    repositionScreenshotButtonWithOffset(kTextViewOffset);
}

// MARK: - Actions

void TVKCommentsTableViewController::repositionScreenshotButtonWithOffset(double offset) {
    std::shared_ptr<TVKButton> thumbnail = screenshotButton();
    // The offsets add up where the thumbnail would be without the floor, so that each
    // begin/end pair cancels out even when the floor stopped the rise (the floor bites on a
    // phone-sized screen: 555 - 266 is above half of 603).
    thumbnailOffsetY_ += offset;
    const double floor = tableView()->frame().size.height / 2;
    UIView::beginAnimations(nullptr, nullptr);
    UIView::setAnimationDuration(kRepositionDuration);
    UIView::setAnimationBeginsFromCurrentState(true);
    Rect frame = thumbnail->frame();
    frame.origin.y = std::max(thumbnailRestingY_ + thumbnailOffsetY_, floor);
    thumbnail->setFrame(frame);
    UIView::commitAnimations();
}

void TVKCommentsTableViewController::orientationDidChange() {
    screenshotButton()->setHidden(true);
}

void TVKCommentsTableViewController::showAlert(const std::string& message) {
    std::shared_ptr<UIAlertController> alert = UIAlertController::alertControllerWithTitle(
        tarvik_localizedString("Oops"), tarvik_localizedString(message),
        UIAlertControllerStyleAlert);
    alert->addAction(
        UIAlertAction::actionWithTitle(tarvik_localizedString("OK"), UIAlertActionStyleDefault));
    presentViewController(alert, true);
}

void TVKCommentsTableViewController::didTapSubmitButton() {
    const std::string email = stringByTrimmingWhitespaceAndNewlineCharacters(emailField()->text());
    const std::string comments =
        stringByTrimmingWhitespaceAndNewlineCharacters(commentsView()->text());
    emailField()->setText(email);
    commentsView()->setText(comments);

    if (comments.empty()) {
        showAlert("Please enter the description about what you are reporting.");
        return;
    }
    // The only check of the address: three characters or more (counted as the phone counts
    // them, in UTF-16 units) with an at sign among them.
    if (!email.empty() && (email.find('@') == std::string::npos || utf16Length(email) < 3)) {
        showAlert("The Optional Email Address provided is invalid.");
        return;
    }
    std::shared_ptr<TVKIssueSubmission> submission = currentIssueSubmission_;
    if (!submission) {
        return;
    }
    // The address goes with this report only; the settings store keeps the one it has.
    submission->setEmailAddress(email);
    submission->setComments(comments);
    if (std::shared_ptr<const Image> screenshot =
            reportSession_ ? reportSession_->screenshot() : nullptr) {
        submission->saveScreenshot(*screenshot);
    }
    // Files still being copied: the editor's copy completion ends the session instead, now
    // that the comments are set.
    if (submission->finishedCopyingFiles()) {
        Runtime::current().notificationCenter().post(TarvikNotificationDidFinishCaptureSession,
                                                     submission);
    }
}

void TVKCommentsTableViewController::popToEditor() {
    if (std::shared_ptr<UINavigationController> navigation = navigationController()) {
        navigation->popViewControllerAnimated(true);
    }
}

void TVKCommentsTableViewController::didTapScreenshotButton() {
    popToEditor();
}

void TVKCommentsTableViewController::didTapBackButton() {
    popToEditor();
}

std::vector<InstanceVariable> TVKCommentsTableViewController::instanceVariablesDeclaredBy(
    const KitClass& kitClass) const {
    if (&kitClass != &staticClass()) {
        return UITableViewController::instanceVariablesDeclaredBy(kitClass);
    }
    // The object-valued variables in declaration order (the session and submission are not
    // toolkit objects).
    return {{"_emailField", asObject(emailField_)},
            {"_commentsView", asObject(commentsView_)},
            {"_screenshotButton", asObject(screenshotButton_)},
            {"_submitButton", asObject(submitButton_)},
            {"_backButton", asObject(backButton_)}};
}

}  // namespace tarvik
