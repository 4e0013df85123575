#pragma once

#include "Kit/UITableViewController.h"
#include "Kit/UITextField.h"
#include "Kit/UITextView.h"
#include "Platform/NotificationCenter.h"
#include "Views/TVKButton.h"
#include "Views/TVKTextField.h"
#include "Views/TVKTextView.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarvik {

class TVKIssueSubmission;
class TVKReportSession;

// The reporter's second screen, pushed by the screenshot editor on Send: a grouped
// table of two rows, an optional e-mail address and a required description, with a thumbnail
// of the annotated screenshot floating at the bottom left of the navigation controller's view
// that leads back to the editor. What the user types goes into the report session at every
// keystroke, so it survives going back and forth. Submitting checks the texts, fills the
// issue submission and, once its files are copied, ends the capture session by posting
// TarvikNotificationDidFinishCaptureSession with the submission.
//
// Made with std::make_shared (it hands itself out as the controls' delegate and target), then
// given its session and submission before it is pushed. Main queue only.
class TVKCommentsTableViewController : public UITableViewController,
                                       public UITextFieldDelegate,
                                       public UITextViewDelegate {
    TVK_KIT_CLASS(TVKCommentsTableViewController, UITableViewController)

  public:
    // The thumbnail's two sizes: portrait, and landscape for a screenshot wider than high.
    static constexpr Size kPortraitThumbnailSize{60, 96};
    static constexpr Size kLandscapeThumbnailSize{96, 60};
    // What the description row leaves of the screen: the keyboard (215) and the e-mail row.
    static constexpr double kReservedScreenHeight = 215 + 56;
    // The thumbnail's moves while the e-mail field and the description are edited.
    static constexpr double kTextFieldOffset = 220;
    static constexpr double kTextViewOffset = 266;

    // Grouped; titled with the host's translation of "Describe the Problem"; subscribed to
    // the device's turns.
    TVKCommentsTableViewController();
    ~TVKCommentsTableViewController() override;

    std::shared_ptr<TVKReportSession> reportSession() const { return reportSession_; }
    void setReportSession(std::shared_ptr<TVKReportSession> session);
    std::shared_ptr<TVKIssueSubmission> currentIssueSubmission() const {
        return currentIssueSubmission_;
    }
    void setCurrentIssueSubmission(std::shared_ptr<TVKIssueSubmission> submission);

    // Controls, each made on first use and kept.
    std::shared_ptr<TVKTextField> emailField();
    std::shared_ptr<TVKTextView> commentsView();
    // The thumbnail: sized and placed from the session's screenshot and the view's height
    // when it is made (loading the view first if needed).
    std::shared_ptr<TVKButton> screenshotButton();
    std::shared_ptr<TVKButton> submitButton();
    std::shared_ptr<TVKButton> backButton();

    void viewDidLoad() override;
    void viewDidAppear(bool animated) override;
    void viewWillDisappear(bool animated) override;
    bool prefersStatusBarHidden() const override { return false; }

    // The table: one section of two rows.
    long numberOfRowsInSection(UITableView& tableView, long section) override;
    std::shared_ptr<UITableViewCell> cellForRowAtIndexPath(UITableView& tableView,
                                                           const NSIndexPath& indexPath) override;
    std::optional<double> heightForRowAtIndexPath(UITableView& tableView,
                                                  const NSIndexPath& indexPath) override;

    // The e-mail field.
    bool textFieldShouldReturn(UITextField& textField) override;
    bool shouldChangeCharactersInRange(UITextField& textField, NSRange range,
                                       const std::string& replacement) override;
    void textFieldDidBeginEditing(UITextField& textField) override;
    void textFieldDidEndEditing(UITextField& textField) override;
    // The description.
    bool shouldChangeTextInRange(UITextView& textView, NSRange range,
                                 const std::string& replacement) override;
    void textViewDidBeginEditing(UITextView& textView) override;
    void textViewDidEndEditing(UITextView& textView) override;

    // Actions.
    void didTapSubmitButton();
    void didTapScreenshotButton();
    void didTapBackButton();
    // Hides the thumbnail (for the rest of the form's life).
    void orientationDidChange();
    // Moves the thumbnail by `offset` in 0.3 s, never above half the table's height. The
    // offsets are summed apart from the floor, so opposite moves always cancel out.
    void repositionScreenshotButtonWithOffset(double offset);

    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override;

  private:
    void subscribeToOrientationChanges();
    void showAlert(const std::string& message);
    void popToEditor();

    std::shared_ptr<TVKReportSession> reportSession_;
    std::shared_ptr<TVKIssueSubmission> currentIssueSubmission_;
    std::shared_ptr<TVKTextField> emailField_;
    std::shared_ptr<TVKTextView> commentsView_;
    std::shared_ptr<TVKButton> screenshotButton_;
    std::shared_ptr<TVKButton> submitButton_;
    std::shared_ptr<TVKButton> backButton_;
    // Where the thumbnail was placed, and the offsets of the editing moves since.
    double thumbnailRestingY_ = 0;
    double thumbnailOffsetY_ = 0;
    // Two: one from the constructor, one from viewDidLoad, as designed.
    std::vector<NotificationCenter::Token> orientationObservers_;
};

}  // namespace tarvik
