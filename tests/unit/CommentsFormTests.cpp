#include <tarvik/TarvikConstants.h>

#include "Helpers/TVKSettingsManager.h"
#include "Helpers/UIColor+Tarvik.h"
#include "Kit/UIAlertController.h"
#include "Kit/UIApplication.h"
#include "Kit/UILabel.h"
#include "Kit/UINavigationController.h"
#include "Kit/UIScreen.h"
#include "Kit/UIWindow.h"
#include "Models/TVKIssueSubmission.h"
#include "Models/TVKReportSession.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKCommentsTableViewController.h"
#include "Views/TVKTextFieldCell.h"
#include "Views/TVKTextViewCell.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarvik {
namespace {

using Form = TVKCommentsTableViewController;

// The reporter as the editor leaves it: a navigation controller in a window the size of the
// screen, the editor at the root and the form pushed over it with the session and submission.
struct FormScreen {
    testing::TestRuntime test;
    std::shared_ptr<TVKReportSession> session = std::make_shared<TVKReportSession>();
    std::shared_ptr<TVKIssueSubmission> submission;
    std::shared_ptr<UIViewController> editor = std::make_shared<UIViewController>();
    std::shared_ptr<UINavigationController> navigation;
    std::shared_ptr<UIWindow> window;
    std::shared_ptr<Form> form;
    std::vector<std::shared_ptr<void>> finished;  // objects of the end-of-session notifications

    explicit FormScreen(Size screen = {375, 667}) {
        test.platform().fakeScreen().setBounds({{0, 0}, screen});
        UIApplication::sharedApplication();  // the device reports its turns from now on
        session->setScreenshot(std::make_shared<Image>(*test.platform().hostWindow().snapshot(2)));
        submission = TVKIssueSubmission::create();
        test.runtime().notificationCenter().addObserver(
            TarvikNotificationDidFinishCaptureSession,
            [this](const Notification& notification) { finished.push_back(notification.object); });
    }

    // Pushes a new form; it appears with the e-mail field editing.
    void show() {
        if (!navigation) {
            navigation = std::make_shared<UINavigationController>(editor);
            window = std::make_shared<UIWindow>(UIScreen::mainScreen().bounds());
            window->setRootViewController(navigation);
            window->makeKeyAndVisible();
        }
        form = std::make_shared<Form>();
        form->setReportSession(session);
        form->setCurrentIssueSubmission(submission);
        navigation->pushViewController(form, true);
        settle();
    }

    // Lets time run on and lays the window out, as a presenter does before each frame.
    void settle(double seconds = 1) {
        test.advance(seconds);
        window->layoutIfNeeded();
    }

    // Where a view lies in the navigation controller's view, where the thumbnail lives.
    Rect inNavigation(const UIView& view) const {
        return view.superview()->convertRectToView(view.frame(), navigation->view().get());
    }
    Rect thumbnail() const { return form->screenshotButton()->frame(); }

    std::shared_ptr<UIResponder> firstResponder() const {
        return UIApplication::sharedApplication().firstResponder();
    }
    void type(const std::string& text) {
        auto input = std::dynamic_pointer_cast<UIKeyInput>(firstResponder());
        ASSERT_TRUE(input);
        input->insertText(text);
        settle(0);
    }
    void tap(const UIView& view) {
        Rect frame = view.convertRectToView(view.bounds(), nullptr);
        Point middle{frame.origin.x + frame.size.width / 2, frame.origin.y + frame.size.height / 2};
        UIApplication& application = UIApplication::sharedApplication();
        application.handleTouch(window, 1, UITouchPhase::Began, middle);
        application.handleTouch(window, 1, UITouchPhase::Ended, middle);
        settle();
    }
    std::shared_ptr<UIAlertController> alert() const {
        return std::dynamic_pointer_cast<UIAlertController>(navigation->presentedViewController());
    }
};

TEST(CommentsForm, IsAGroupedTableOfAnEmailRowAndADescriptionRow) {
    FormScreen screen;
    screen.show();
    Form& form = *screen.form;
    std::shared_ptr<UITableView> table = form.tableView();
    EXPECT_EQ(form.title(), "Describe the Problem");
    EXPECT_EQ(table->style(), UITableViewStyleGrouped);
    EXPECT_EQ(table->separatorStyle(), UITableViewCellSeparatorStyleNone);
    EXPECT_EQ(table->backgroundColor(), Color::colorWithRed(1, 1, 1, 1));
    EXPECT_EQ(table->contentInset(), (UIEdgeInsets{-35, 0, 0, 0}));
    EXPECT_FALSE(form.prefersStatusBarHidden());
    ASSERT_EQ(table->numberOfRowsInSection(0), 2);

    auto fieldCell =
        std::dynamic_pointer_cast<TVKTextFieldCell>(table->cellForRowAtIndexPath({0, 0}));
    auto viewCell =
        std::dynamic_pointer_cast<TVKTextViewCell>(table->cellForRowAtIndexPath({0, 1}));
    ASSERT_TRUE(fieldCell && viewCell);
    EXPECT_EQ(fieldCell->reuseIdentifier(), "TVKTextFieldCell");
    EXPECT_EQ(viewCell->UITableViewCell::reuseIdentifier(), "TVKTextViewCell");
    EXPECT_EQ(TVKBaseCell::reuseIdentifier(), "TVKBaseCell");
    EXPECT_EQ(TVKBaseCell::rowHeight(), 44);
    for (const std::shared_ptr<UITableViewCell>& cell :
         std::vector<std::shared_ptr<UITableViewCell>>{fieldCell, viewCell}) {
        EXPECT_EQ(cell->selectionStyle(), UITableViewCellSelectionStyleNone);
        EXPECT_EQ(cell->separatorInset(), UIEdgeInsets{});
        EXPECT_EQ(cell->layoutMargins(), UIEdgeInsets{});
        // The line across the top, made twice as wide as the cell's first 320 points.
        auto border = std::static_pointer_cast<UIView>(
            cell->instanceVariablesDeclaredBy(TVKBaseCell::staticClass()).at(0).value);
        EXPECT_EQ(border->frame(), (Rect{{0, 0}, {640, 1}}));
        EXPECT_EQ(border->backgroundColor(), tarvik_drawContainerBorderColor());
        EXPECT_EQ(border->superview(), cell->contentView());
    }
    EXPECT_EQ(fieldCell->textField(), form.emailField());
    EXPECT_EQ(viewCell->textView(), form.commentsView());
    // The e-mail row right under the bar (the grouped gap is inset away), the description under
    // it, its text 16 points in and 8 down.
    EXPECT_EQ(screen.inNavigation(*fieldCell), (Rect{{0, 64}, {375, 56}}));
    EXPECT_EQ(screen.inNavigation(*form.emailField()), (Rect{{0, 64}, {375, 56}}));
    EXPECT_EQ(screen.inNavigation(*viewCell), (Rect{{0, 120}, {375, 240}}));
    EXPECT_EQ(screen.inNavigation(*form.commentsView()), (Rect{{16, 128}, {359, 232}}));

    EXPECT_EQ(form.navigationItem()->rightBarButtonItem()->customView(), form.submitButton());
    EXPECT_EQ(form.navigationItem()->leftBarButtonItem()->customView(), form.backButton());
    for (const std::shared_ptr<TVKButton>& button : {form.submitButton(), form.backButton()}) {
        EXPECT_EQ(button->buttonType(), UIButtonTypeCustom);
        ASSERT_TRUE(button->currentImage());
        EXPECT_EQ(button->currentImage()->renderingMode(), UIImageRenderingModeAlwaysOriginal);
        EXPECT_EQ(button->frame().size, (Size{24, 24}));
    }
}

TEST(CommentsForm, ControlsAreSetUpAsDesignedInTheHostsLanguage) {
    FormScreen screen;
    screen.test.platform().localization().setTranslations(
        {{"Describe the Problem", "Problem beschreiben"},
         {"Your email address...", "Ihre E-Mail-Adresse..."},
         {"optional", "optional."},
         {"Description of the problem", "Beschreibung des Problems"}});
    screen.show();
    Form& form = *screen.form;
    EXPECT_EQ(form.title(), "Problem beschreiben");

    std::shared_ptr<TVKTextField> field = form.emailField();
    EXPECT_EQ(field->inputTraits().keyboardType, UIKeyboardType::EmailAddress);
    EXPECT_EQ(field->inputTraits().returnKeyType, UIReturnKeyType::Next);
    EXPECT_EQ(field->inputTraits().autocorrectionType, UITextAutocorrectionType::No);
    EXPECT_EQ(field->inputTraits().autocapitalizationType, UITextAutocapitalizationType::None);
    EXPECT_EQ(field->font(), *UIFont::fontWithName("HelveticaNeue", 16));
    EXPECT_EQ(field->textColor(), tarvik_darkTextColor());
    EXPECT_EQ(field->placeholder(), "Ihre E-Mail-Adresse...");
    EXPECT_EQ(field->attributedPlaceholder().runs().at(0).attributes.foregroundColor,
              tarvik_placeholderTextColor());
    EXPECT_EQ(field->leftView()->frame().size, (Size{16, 1}));
    EXPECT_EQ(field->leftViewMode(), UITextFieldViewMode::Always);
    auto optional = std::dynamic_pointer_cast<UILabel>(field->rightView());
    ASSERT_TRUE(optional);
    EXPECT_EQ(optional->frame().size, (Size{70, 20}));
    EXPECT_EQ(optional->text(), "optional.");
    EXPECT_EQ(optional->textColor(), tarvik_placeholderTextColor());
    EXPECT_EQ(field->rightViewMode(), UITextFieldViewMode::UnlessEditing);

    std::shared_ptr<TVKTextView> view = form.commentsView();
    EXPECT_EQ(view->font(), *UIFont::fontWithName("HelveticaNeue", 16));
    EXPECT_EQ(view->textColor(), tarvik_darkTextColor());
    EXPECT_EQ(view->lineFragmentPadding(), 0);
    EXPECT_EQ(view->textContainerInset(), (UIEdgeInsets{0, 0, 0, 20}));
    EXPECT_EQ(view->placeholder(), "Beschreibung des Problems");
    EXPECT_EQ(view->delegate().get(), static_cast<UITextViewDelegate*>(&form));
    EXPECT_EQ(field->delegate().get(), static_cast<UITextFieldDelegate*>(&form));
}

// Row 1 leaves room for the keyboard (215) and the e-mail row (56); when that is less than two
// thumbnails high, the thumbnail goes.
TEST(CommentsForm, DescriptionRowShrinksOnShortScreensAndTheThumbnailGivesWay) {
    struct Case {
        double screenHeight;
        bool landscapeShot;
        double rowHeight;
        bool thumbnailHidden;
    };
    for (const Case& c :
         {Case{667, false, 240, false}, Case{511, false, 240, false}, Case{480, false, 209, false},
          Case{460, false, 189, true}, Case{460, true, 189, false}, Case{380, true, 109, true}}) {
        SCOPED_TRACE(c.screenHeight);
        FormScreen screen({375, c.screenHeight});
        if (c.landscapeShot) {
            screen.session->setScreenshot(std::make_shared<Image>(
                *Image::filled(667, 375, 1, {0.2, 0.4, 0.8, 1}, Image::Opaque)));
        }
        screen.show();
        EXPECT_EQ(screen.form->tableView()->rectForRowAtIndexPath({0, 0}).size.height, 56);
        EXPECT_EQ(screen.form->tableView()->rectForRowAtIndexPath({0, 1}).size.height, c.rowHeight);
        EXPECT_EQ(screen.form->screenshotButton()->isHidden(), c.thumbnailHidden);
    }
}

TEST(CommentsForm, TextIsMeasuredInTheBoldFontWithinTheRowHeight) {
    testing::TestRuntime test;
    EXPECT_EQ(TVKTextViewCell::textViewFont(), *UIFont::fontWithName("HelveticaNeue-Bold", 16));
    EXPECT_EQ(TVKTextViewCell::rowHeight(), 240);
    EXPECT_EQ(TVKTextFieldCell::rowHeight(), 56);
    // One line of 19.088 points, rounded up; three lines; never more than the row.
    EXPECT_EQ(TVKTextViewCell::heightForText("Tap", 359), 20);
    EXPECT_EQ(TVKTextViewCell::rowHeightForText("a\nb\nc", 359), 58);
    std::string many = "line";
    for (int i = 0; i < 30; ++i) {
        many += "\nline";
    }
    EXPECT_LE(TVKTextViewCell::rowHeightForText(many, 359), 240);
    EXPECT_GT(TVKTextViewCell::rowHeightForText(many, 359), 220);
    // Long words wrap within the width.
    EXPECT_GT(TVKTextViewCell::heightForText("The checkout button does nothing at all", 100), 40);
}

TEST(CommentsForm, ThumbnailShowsTheScreenshotAtTheBottomLeftAndLeadsBack) {
    FormScreen screen;
    screen.show();
    std::shared_ptr<TVKButton> thumbnail = screen.form->screenshotButton();
    EXPECT_EQ(thumbnail->superview(), screen.navigation->view());
    ASSERT_TRUE(thumbnail->currentBackgroundImage());
    EXPECT_EQ(thumbnail->currentBackgroundImage()->bitmap().surface(),
              screen.session->screenshot()->surface());
    EXPECT_EQ(thumbnail->layer(), (CALayerStyle{tarvik_screenshotBorderColor(), 1, 8}));
    EXPECT_TRUE(thumbnail->clipsToBounds());
    // Raised by 220 while the e-mail field edits; 16 points from the bottom left at rest.
    EXPECT_EQ(screen.thumbnail(), (Rect{{16, 667 - 96 - 16 - 220}, {60, 96}}));
    screen.form->emailField()->resignFirstResponder();
    EXPECT_EQ(screen.thumbnail(), (Rect{{16, 555}, {60, 96}}));

    screen.test.advance(1);
    screen.tap(*thumbnail);
    EXPECT_EQ(screen.navigation->topViewController(), screen.editor);
    EXPECT_EQ(thumbnail->superview(), nullptr);  // taken away as the form went

    // Coming forward again makes a new form with a thumbnail of its own; its back button pops.
    screen.show();
    EXPECT_NE(screen.form->screenshotButton(), thumbnail);
    EXPECT_EQ(screen.form->screenshotButton()->superview(), screen.navigation->view());
    screen.tap(*screen.form->backButton());
    EXPECT_EQ(screen.navigation->topViewController(), screen.editor);
    EXPECT_EQ(screen.form->screenshotButton()->superview(), nullptr);
}

TEST(CommentsForm, LandscapeScreenshotGivesAWideThumbnail) {
    FormScreen screen;
    screen.session->setScreenshot(
        std::make_shared<Image>(*Image::filled(667, 375, 2, {0.2, 0.4, 0.8, 1}, Image::Opaque)));
    screen.show();
    screen.form->emailField()->resignFirstResponder();
    EXPECT_EQ(screen.thumbnail(), (Rect{{16, 667 - 60 - 16}, {96, 60}}));
}

// Hidden by a turn of the device, for the rest of the form's life; a form that is gone hears
// of turns no more.
TEST(CommentsForm, TurningTheDeviceHidesTheThumbnail) {
    FormScreen screen;
    screen.show();
    EXPECT_FALSE(screen.form->screenshotButton()->isHidden());
    screen.test.platform().fakeScreen().setDeviceOrientation(UIDeviceOrientationLandscapeLeft);
    screen.test.advance(0);
    EXPECT_TRUE(screen.form->screenshotButton()->isHidden());
    screen.test.platform().fakeScreen().setDeviceOrientation(UIDeviceOrientationPortrait);
    screen.test.advance(0);
    EXPECT_TRUE(screen.form->screenshotButton()->isHidden());

    std::weak_ptr<Form> gone = screen.form;
    screen.form->didTapBackButton();
    screen.test.advance(1);
    screen.form.reset();
    EXPECT_TRUE(gone.expired());
    screen.test.platform().fakeScreen().setDeviceOrientation(UIDeviceOrientationLandscapeRight);
    screen.test.advance(0);
}

TEST(CommentsForm, PrefillsTheSessionsEmailBeforeTheStoredOneAndTrimsBoth) {
    {
        FormScreen screen;
        TVKSettingsManager::setUserEmail("stored@example.com");
        screen.session->setEmail("  typed@example.com \n");
        screen.session->setComments("\n  It froze on the second tap.\n\n ");
        screen.show();
        EXPECT_EQ(screen.form->emailField()->text(), "typed@example.com");
        EXPECT_EQ(screen.form->commentsView()->text(), "It froze on the second tap.");
    }
    {
        FormScreen screen;
        TVKSettingsManager::setUserEmail(" stored@example.com ");
        screen.session->setEmail("");
        screen.show();
        EXPECT_EQ(screen.form->emailField()->text(), "stored@example.com");
        EXPECT_EQ(screen.form->commentsView()->text(), "");
    }
    {
        FormScreen screen;
        screen.show();
        EXPECT_EQ(screen.form->emailField()->text(), "");
    }
}

TEST(CommentsForm, ReturnOnTheEmailFieldMovesToTheDescription) {
    FormScreen screen;
    screen.submission->setFinishedCopyingFiles(true);
    screen.show();
    EXPECT_EQ(screen.firstResponder(), screen.form->emailField());
    screen.type("ann@example.com");
    screen.type("\n");
    EXPECT_EQ(screen.firstResponder(), screen.form->commentsView());
    EXPECT_FALSE(screen.form->textFieldShouldReturn(*screen.form->emailField()));
    EXPECT_EQ(screen.form->emailField()->text(), "ann@example.com");
    EXPECT_EQ(screen.alert(), nullptr);
    EXPECT_TRUE(screen.finished.empty());
}

// Typed text lives in the session, so it comes back on the next form of the report.
TEST(CommentsForm, EveryKeystrokeIsStoredInTheSession) {
    FormScreen screen;
    screen.show();
    screen.type("ann@exampel");
    screen.form->emailField()->deleteBackward();
    screen.form->emailField()->deleteBackward();
    screen.type("le.com");
    EXPECT_EQ(screen.session->email(), "ann@example.com");
    screen.type("\n");
    screen.type("It froze.\nTwice");
    EXPECT_EQ(screen.session->comments(), "It froze.\nTwice");
    screen.form->commentsView()->deleteBackward();
    EXPECT_EQ(screen.session->comments(), "It froze.\nTwic");

    screen.tap(*screen.form->backButton());
    screen.show();
    EXPECT_EQ(screen.form->emailField()->text(), "ann@example.com");
    EXPECT_EQ(screen.form->commentsView()->text(), "It froze.\nTwic");
}

// On a tall screen the floor never bites and each begin/end pair cancels out, whichever control
// the focus moves between. The move is a 0.3-second animation.
TEST(CommentsForm, ThumbnailMovesWithTheEditingAndComesBackToItsPlace) {
    FormScreen screen({375, 812});
    screen.show();
    std::shared_ptr<TVKButton> thumbnail = screen.form->screenshotButton();
    const double rest = 812 - 96 - 16;
    EXPECT_EQ(screen.thumbnail().origin.y, rest - 220);
    screen.type("\n");  // field ended (+220), description began (-266)
    EXPECT_EQ(screen.thumbnail().origin.y, rest - 266);
    screen.tap(*screen.form->emailField());
    EXPECT_EQ(screen.firstResponder(), screen.form->emailField());
    EXPECT_EQ(screen.thumbnail().origin.y, rest - 220);
    screen.form->emailField()->resignFirstResponder();
    EXPECT_EQ(screen.thumbnail(), (Rect{{16, rest}, {60, 96}}));

    const double start = screen.test.runtime().clock().mediaTime();
    screen.form->repositionScreenshotButtonWithOffset(-100);
    EXPECT_EQ(screen.thumbnail().origin.y, rest - 100);
    EXPECT_TRUE(thumbnail->isAnimating(start + 0.29));
    EXPECT_FALSE(thumbnail->isAnimating(start + 0.31));
}

// The thumbnail never rises above half the table's height (603 / 2 under the bar), and still
// comes back to its place: what the floor held back is not lost from the moves.
TEST(CommentsForm, ThumbnailStopsHalfwayUpTheTableAndStillComesBack) {
    {
        FormScreen screen;
        screen.show();
        EXPECT_EQ(screen.form->tableView()->frame().size.height, 603);
        EXPECT_EQ(screen.thumbnail().origin.y, 555 - 220);
        screen.type("\n");
        EXPECT_EQ(screen.thumbnail().origin.y, 301.5);  // not 555 - 266 = 289
        screen.tap(*screen.form->emailField());
        EXPECT_EQ(screen.thumbnail().origin.y, 555 - 220);
        screen.type("\n");
        screen.form->commentsView()->resignFirstResponder();
        EXPECT_EQ(screen.thumbnail().origin.y, 555);  // not 301.5 + 266 = 567.5
        screen.form->repositionScreenshotButtonWithOffset(-500);
        EXPECT_EQ(screen.thumbnail().origin.y, 301.5);
        screen.form->repositionScreenshotButtonWithOffset(500);
        EXPECT_EQ(screen.thumbnail().origin.y, 555);
    }
    // A short screen: the field's rise already stops at 416 / 2, and the thumbnail goes back
    // to 16 points above the bottom rather than 60 points lower, half off the screen.
    FormScreen screen({375, 480});
    screen.show();
    EXPECT_EQ(screen.thumbnail().origin.y, 208);
    screen.form->emailField()->resignFirstResponder();
    EXPECT_EQ(screen.thumbnail().origin.y, 480 - 96 - 16);
}

// Once the description's text reaches down to the raised thumbnail, the thumbnail goes, and
// stays gone when the text shrinks again.
TEST(CommentsForm, GrowingDescriptionHidesTheThumbnailWhereTheyMeet) {
    FormScreen screen;
    screen.show();
    screen.type("\n");
    ASSERT_EQ(screen.thumbnail().origin.y, 301.5);
    // The text starts at 128: nine lines (172 points) end above the thumbnail, ten do not.
    screen.type("1");
    for (int line = 2; line <= 9; ++line) {
        screen.type("\n" + std::to_string(line));
    }
    EXPECT_FALSE(screen.form->screenshotButton()->isHidden());
    screen.type("\n");
    screen.type("10");
    EXPECT_TRUE(screen.form->screenshotButton()->isHidden());
    for (int i = 0; i < 10; ++i) {
        screen.form->commentsView()->deleteBackward();
    }
    EXPECT_TRUE(screen.form->screenshotButton()->isHidden());
}

TEST(CommentsForm, SubmitAsksForADescription) {
    FormScreen screen;
    screen.submission->setFinishedCopyingFiles(true);
    screen.test.platform().localization().setTranslations({{"Oops", "Hoppla"}});
    screen.show();
    screen.type("\n");
    screen.type("   \n  ");
    screen.tap(*screen.form->submitButton());
    std::shared_ptr<UIAlertController> alert = screen.alert();
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->title(), "Hoppla");
    EXPECT_EQ(alert->message(), "Please enter the description about what you are reporting.");
    EXPECT_EQ(alert->preferredStyle(), UIAlertControllerStyleAlert);
    ASSERT_EQ(alert->actions().size(), 1u);
    EXPECT_EQ(alert->actions()[0]->title(), "OK");
    EXPECT_EQ(alert->actions()[0]->style(), UIAlertActionStyleDefault);
    EXPECT_EQ(screen.form->commentsView()->text(), "");  // trimmed away
    EXPECT_EQ(screen.submission->comments(), std::nullopt);
    EXPECT_TRUE(screen.finished.empty());
}

// The only test of an address: when given, three characters or more with an at sign. It is
// trimmed before the test and before it is stored.
TEST(CommentsForm, SubmitChecksOnlyThatAGivenEmailHasAnAtSignAndThreeCharacters) {
    struct Case {
        std::string given;
        std::string trimmed;
        bool accepted;
    };
    for (const Case& c :
         {Case{"ab", "ab", false}, Case{"abc", "abc", false}, Case{"a@", "a@", false},
          Case{" a@ \n", "a@", false}, Case{"a@b", "a@b", true}, Case{"@@@", "@@@", true},
          Case{"", "", true}, Case{" \t ", "", true},
          Case{"  ann@example.com\n", "ann@example.com", true}}) {
        SCOPED_TRACE("'" + c.given + "'");
        FormScreen screen;
        screen.submission->setFinishedCopyingFiles(true);
        screen.show();
        screen.form->emailField()->setText(c.given);
        screen.type("\n");
        screen.type("It froze.");
        screen.form->didTapSubmitButton();
        screen.test.advance(1);
        EXPECT_EQ(screen.form->emailField()->text(), c.trimmed);
        if (c.accepted) {
            EXPECT_EQ(screen.alert(), nullptr);
            EXPECT_EQ(screen.submission->emailAddress(), c.trimmed);
            EXPECT_EQ(screen.finished.size(), 1u);
        } else {
            ASSERT_TRUE(screen.alert());
            EXPECT_EQ(screen.alert()->title(), "Oops");
            EXPECT_EQ(screen.alert()->message(), "The Optional Email Address provided is invalid.");
            EXPECT_EQ(screen.submission->emailAddress(), std::nullopt);
            EXPECT_TRUE(screen.finished.empty());
        }
    }
}

// The submission gets the address, the description and the screenshot at once; the session
// ends here only when the submission's files are already copied (otherwise the editor's copy
// completion ends it). The stored address is never replaced.
TEST(CommentsForm, SubmitFillsTheSubmissionAndEndsTheSessionOnceFilesAreCopied) {
    FormScreen screen;
    TVKSettingsManager::setUserEmail("stored@example.com");
    screen.show();
    std::shared_ptr<TVKTextField> field = screen.form->emailField();
    while (field->hasText()) {
        field->deleteBackward();
    }
    screen.type("new@example.com");
    screen.type("\n");
    screen.type("It froze.");

    screen.tap(*screen.form->submitButton());
    EXPECT_EQ(screen.alert(), nullptr);
    EXPECT_EQ(screen.submission->emailAddress(), "new@example.com");
    EXPECT_EQ(screen.submission->comments(), "It froze.");
    EXPECT_TRUE(std::filesystem::is_regular_file(screen.submission->screenshotFilePath()));
    EXPECT_TRUE(screen.finished.empty());

    screen.submission->setFinishedCopyingFiles(true);
    screen.tap(*screen.form->submitButton());
    ASSERT_EQ(screen.finished.size(), 1u);
    EXPECT_EQ(screen.finished[0], screen.submission);
    EXPECT_EQ(TVKSettingsManager::userEmail(), "stored@example.com");
}

}  // namespace
}  // namespace tarvik
