#include "Helpers/UIColor+Tarvik.h"
#include "Kit/UIApplication.h"
#include "Kit/UINavigationItem.h"
#include "Models/TVKIssueSubmission.h"
#include "Models/TVKReportSession.h"
#include "Platform/Testing/ReporterDriver.h"
#include "Views/TVKCommentsTableViewController.h"
#include "Views/TVKScreenshotViewController.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

namespace tarvik {
namespace {

using Status = TVKDirectoryLayout::Status;
using testing::ReporterDriver;

bool sameColor(const Color& a, const Color& b) {
    return a.red() == b.red() && a.green() == b.green() && a.blue() == b.blue();
}

// The colour at the centre of a button's image.
Image::Pixel centreOfImage(const UIButton& button) {
    Image image = button.imageForState(UIControlStateNormal)->bitmap();
    return image.pixelAt(image.pixelWidth() / 2, image.pixelHeight() / 2);
}

// How many pixels of a button's image are white: the tick's.
int whitePixels(const UIButton& button) {
    Image image = button.imageForState(UIControlStateNormal)->bitmap();
    int count = 0;
    for (int y = 0; y < image.pixelHeight(); ++y) {
        for (int x = 0; x < image.pixelWidth(); ++x) {
            Image::Pixel pixel = image.pixelAt(x, y);
            count += pixel.alpha == 255 && std::min({pixel.red, pixel.green, pixel.blue}) > 240;
        }
    }
    return count;
}

// Whether some pixel of `image` in a small square around `point` (in points) is the pen's red.
bool redInkNear(const Image& image, Point point) {
    for (int dy = -4; dy <= 4; ++dy) {
        for (int dx = -4; dx <= 4; ++dx) {
            Image::Pixel pixel = image.pixelAt(static_cast<int>(point.x * image.scale()) + dx,
                                               static_cast<int>(point.y * image.scale()) + dy);
            if (pixel.red > 200 && pixel.green < 90 && pixel.blue < 90) {
                return true;
            }
        }
    }
    return false;
}

TEST(ScreenshotEditor, OpensOverTheAppWithBlueChosenAfterTheShutter) {
    ReporterDriver reporter;
    reporter.open();
    auto editor = reporter.top<TVKScreenshotViewController>();
    ASSERT_TRUE(editor);
    EXPECT_EQ(reporter.runtime.platform().systemCalls().calls(),
              (std::vector<std::string>{"sound 1108", "snapshot"}));
    EXPECT_EQ(reporter.window()->windowLevel(), UIWindowLevelStatusBar);
    EXPECT_EQ(editor->title(), "Circle the Problem");
    EXPECT_EQ(editor->navigationItem()->backBarButtonItem()->title(), "");

    // Blue's disc carries the white tick; the other discs are plain.
    EXPECT_TRUE(sameColor(editor->drawingView()->strokeColor(), tarvik_drawBlueColor()));
    EXPECT_GT(whitePixels(*editor->blueColorButton()), 20);
    EXPECT_EQ(whitePixels(*editor->greenColorButton()), 0);
    EXPECT_EQ(centreOfImage(*editor->greenColorButton()), (Image::Pixel{255, 46, 230, 58}));

    // The tool bars sit 8 points inside the bottom corners of the screen under the bar.
    Size screen = editor->view()->frame().size;
    EXPECT_EQ(editor->drawContainerView()->frame(), (Rect{{8, screen.height - 56}, {196, 48}}));
    EXPECT_EQ(editor->eraseContainerView()->frame(),
              (Rect{{screen.width - 56, screen.height - 56}, {48, 48}}));
    EXPECT_EQ(editor->drawingView()->frame(), editor->imageView()->frame());

    // A trigger while the reporter is open is dropped: no second capture, same window.
    std::shared_ptr<UIWindow> window = reporter.window();
    reporter.tarvik.launchIssueSubmission();
    EXPECT_EQ(reporter.window(), window);
    EXPECT_EQ(reporter.runtime.platform().systemCalls().calls().size(), 2u);
}

TEST(ScreenshotEditor, ASystemScreenshotHasMadeItsSoundAlready) {
    ReporterDriver reporter;
    reporter.tarvik.setProcessType(TarvikProcessTypeScreenshot);
    reporter.open();
    EXPECT_EQ(reporter.runtime.platform().systemCalls().calls(),
              (std::vector<std::string>{"snapshot"}));
}

TEST(ScreenshotEditor, PensDrawInTheirColoursAndClearingKeepsTheChoice) {
    ReporterDriver reporter;
    reporter.open();
    auto editor = reporter.top<TVKScreenshotViewController>();
    Size screen = editor->view()->frame().size;

    reporter.tap(*editor->blackColorButton());
    EXPECT_TRUE(sameColor(editor->drawingView()->strokeColor(), tarvik_drawBlackColor()));
    reporter.tap(*editor->redColorButton());
    EXPECT_EQ(centreOfImage(*editor->blackColorButton()), (Image::Pixel{255, 57, 63, 71}));
    EXPECT_EQ(whitePixels(*editor->blackColorButton()), 0);
    EXPECT_GT(whitePixels(*editor->redColorButton()), 20);

    // While the finger is down the bars spring out of its way; they come back when it lifts.
    UIApplication& application = UIApplication::sharedApplication();
    application.handleTouch(reporter.window(), 1, UITouchPhase::Began, {100, 200});
    EXPECT_EQ(editor->drawContainerView()->frame().origin.y, screen.height + 100);
    EXPECT_EQ(editor->eraseContainerView()->frame().origin.y, screen.height + 100);
    application.handleTouch(reporter.window(), 1, UITouchPhase::Moved, {150, 260});
    application.handleTouch(reporter.window(), 1, UITouchPhase::Ended, {200, 320});
    EXPECT_EQ(editor->drawContainerView()->frame().origin.y, screen.height - 56);
    reporter.runtime.advance(1);

    Point middle = editor->drawingView()->convertPointFromView({150, 260}, reporter.window().get());
    ASSERT_TRUE(editor->drawingView()->drawnImage());
    EXPECT_TRUE(redInkNear(*editor->drawingView()->drawnImage(), middle));

    reporter.tap(*editor->eraserButton());
    EXPECT_FALSE(editor->drawingView()->drawnImage());
    EXPECT_TRUE(sameColor(editor->drawingView()->strokeColor(), tarvik_drawRedColor()));
}

TEST(ScreenshotEditor, SendBurnsTheDrawingIntoTheScreenshotOnceHoweverOftenItIsPressed) {
    ReporterDriver reporter;
    reporter.open();
    auto editor = reporter.top<TVKScreenshotViewController>();
    std::shared_ptr<const Image> captured = editor->reportSession()->screenshot();

    // Without ink the screenshot goes on unchanged.
    reporter.tap(*editor->sendButton());
    reporter.runtime.advance(1);
    EXPECT_NE(reporter.top<TVKScreenshotViewController>(), editor);
    EXPECT_EQ(*editor->reportSession()->screenshot()->pngRepresentation(),
              *captured->pngRepresentation());
    editor->navigationController()->popViewControllerAnimated(true);
    reporter.runtime.advance(1);

    reporter.tap(*editor->redColorButton());
    reporter.drag({{120, 300}, {160, 340}, {200, 380}, {240, 420}});
    Rect canvas = editor->drawingView()->frame();
    Point drawn = editor->drawingView()->convertPointFromView({160, 340}, reporter.window().get());
    reporter.tap(*editor->sendButton());
    reporter.runtime.advance(1);
    std::shared_ptr<const Image> first = editor->reportSession()->screenshot();
    EXPECT_EQ(first->pixelWidth(), captured->pixelWidth());
    // The canvas is smaller than the screenshot: the ink lands where it was drawn over it.
    EXPECT_TRUE(redInkNear(*first, {drawn.x * first->width() / canvas.size.width,
                                    drawn.y * first->height() / canvas.size.height}));

    editor->navigationController()->popViewControllerAnimated(true);
    reporter.runtime.advance(1);
    reporter.tap(*editor->sendButton());
    EXPECT_EQ(*editor->reportSession()->screenshot()->pngRepresentation(),
              *first->pngRepresentation());
}

TEST(ScreenshotEditor, ATurnOfTheInterfaceDiscardsTheDrawingAFaceUpDeviceDoesNot) {
    ReporterDriver reporter;
    reporter.open();
    auto editor = reporter.top<TVKScreenshotViewController>();
    reporter.drag({{120, 300}, {160, 340}, {200, 380}});
    testing::FakeScreen& screen = reporter.runtime.platform().fakeScreen();

    screen.setDeviceOrientation(UIDeviceOrientationFaceUp);
    reporter.runtime.advance(0.5);
    EXPECT_TRUE(editor->drawingView()->drawnImage());

    screen.setInterfaceOrientation(UIInterfaceOrientationLandscapeRight);
    screen.setDeviceOrientation(UIDeviceOrientationLandscapeLeft);
    reporter.runtime.advance(0.19);
    EXPECT_TRUE(editor->drawingView()->drawnImage());  // not before the interface has turned
    reporter.runtime.advance(0.02);
    EXPECT_FALSE(editor->drawingView()->drawnImage());
    EXPECT_EQ(editor->oldStatusBarOrientation(), UIInterfaceOrientationLandscapeRight);
    EXPECT_EQ(editor->drawingView()->frame(), editor->imageView()->frame());
}

// Holds both threads of the test platform's background queue until released, so that a
// submission's files are still being gathered. Nothing may wait for the background meanwhile.
class BackgroundHold {
  public:
    explicit BackgroundHold(ReporterDriver& reporter) {
        for (int thread = 0; thread < 2; ++thread) {
            reporter.runtime.platform().globalQueue().async([this] {
                std::unique_lock lock(mutex_);
                released_.wait(lock, [this] { return open_; });
            });
        }
    }
    ~BackgroundHold() { release(); }
    void release() {
        {
            std::lock_guard lock(mutex_);
            open_ = true;
        }
        released_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable released_;
    bool open_ = false;
};

TEST(ScreenshotEditor, CancelWhileFilesAreCopyingLeavesNothingBehind) {
    ReporterDriver reporter;
    reporter.tarvik.configureDirectories();
    // The gathering cannot start before the cancel.
    BackgroundHold hold(reporter);
    // Nothing here may wait for the background, which is held.
    reporter.tarvik.launchIssueSubmission();
    auto editor = reporter.top<TVKScreenshotViewController>();
    EXPECT_EQ(reporter.issuesIn(Status::Processing).size(), 1u);
    reporter.runtime.platform().virtualClock().advance(4);
    Point cancel = editor->cancelButton()->convertPointToView({12, 12}, reporter.window().get());
    UIApplication::sharedApplication().handleTouch(reporter.window(), 1, UITouchPhase::Began,
                                                   cancel);
    UIApplication::sharedApplication().handleTouch(reporter.window(), 1, UITouchPhase::Ended,
                                                   cancel);
    hold.release();
    reporter.runtime.drain();
    reporter.runtime.advance(0.3);

    EXPECT_TRUE(reporter.issuesIn(Status::Processing).empty());
    EXPECT_TRUE(reporter.issuesIn(Status::Queued).empty());
    EXPECT_FALSE(reporter.window());  // faded out and dropped
    // Nothing of the reporter outlives its window: a closed reporter costs the host nothing.
    std::weak_ptr<TVKScreenshotViewController> closed = editor;
    editor.reset();
    EXPECT_TRUE(closed.expired());
    EXPECT_GE(reporter.tarvik.totalTimeInSubmissionDialog(), 4.0);
}

// Submitted before its files are gathered, the issue is handed on by the gathering's end, once.
TEST(ScreenshotEditor, FilesGatheredAfterTheSubmitEndTheSessionFromTheGathering) {
    ReporterDriver reporter;
    reporter.tarvik.configureDirectories();
    std::vector<std::shared_ptr<void>> ended;
    reporter.runtime.runtime().notificationCenter().addObserver(
        TarvikNotificationDidFinishCaptureSession,
        [&](const Notification& notification) { ended.push_back(notification.object); });
    BackgroundHold hold(reporter);
    reporter.tarvik.launchIssueSubmission();
    auto editor = reporter.top<TVKScreenshotViewController>();
    editor->didTapSendButton();
    auto form = reporter.top<TVKCommentsTableViewController>();
    ASSERT_TRUE(form);
    form->commentsView()->setText("It froze.");
    form->didTapSubmitButton();
    EXPECT_TRUE(ended.empty());
    EXPECT_FALSE(editor->currentSubmission()->finishedCopyingFiles());

    hold.release();
    reporter.runtime.drain();
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended[0], editor->currentSubmission());
    reporter.runtime.advance(0.3);
    EXPECT_FALSE(reporter.window());  // the reporter has closed
}

TEST(ScreenshotEditor, TextsComeFromTheHostsTranslations) {
    ReporterDriver reporter;
    reporter.runtime.platform().localization().setTranslations(
        {{"Circle the Problem", "Entoure le problème"}});
    reporter.open();
    EXPECT_EQ(reporter.top<TVKScreenshotViewController>()->title(), "Entoure le problème");
}

}  // namespace
}  // namespace tarvik
