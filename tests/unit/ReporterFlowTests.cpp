#include "Helpers/TVKLogger.h"
#include "Helpers/UIApplication+Tarvik.h"
#include "Helpers/UIViewController+Tarvik.h"
#include "Kit/UIAlertController.h"
#include "Kit/UIApplication.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/Testing/ReporterDriver.h"
#include "Views/TVKCommentsTableViewController.h"
#include "Views/TVKScreenshotViewController.h"
#include "support/TrackingLog.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace tarvik {
namespace {

using Status = TVKDirectoryLayout::Status;
using testing::ReporterDriver;

// Writes down what the SDK asks and tells its host, in order.
class RecordingDelegate : public TarvikDelegate {
  public:
    std::vector<std::string> calls;
    std::optional<bool> tarvikShouldDisplayInstructionView(Tarvik&) override {
        calls.push_back("instruction?");
        return false;
    }
    std::optional<bool> tarvikShouldDisplayConfirmationMessage(Tarvik&) override {
        calls.push_back("confirmation?");
        return std::nullopt;  // the default: shown
    }
    void tarvikDidGenerateUserIssueSubmission(Tarvik&) override { calls.push_back("generated"); }
};

std::string contentsOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The message of the alert over the reporter (alerts are presented by the stack's root).
std::string alertMessageOn(const UIWindow& window) {
    auto alert = std::dynamic_pointer_cast<UIAlertController>(
        window.rootViewController()->presentedViewController());
    return alert ? alert->message() : "";
}

TEST(ReporterFlow, ATesterFilesAReportFromTheTriggerToTheQueue) {
    ReporterDriver reporter;
    UIApplicationTarvik::tarvik_swizzleMethods();
    UIViewControllerTarvik::tarvik_swizzleMethods();
    std::filesystem::create_directories(TVKLogger::tempLogsDirectory());
    auto delegate = std::make_shared<RecordingDelegate>();
    reporter.tarvik.setDelegate(delegate);
    reporter.tarvik.setApiKey("flow-key");
    reporter.tarvik.configureDirectories();
    reporter.tarvik.setUserIdentifier("user-7");
    reporter.tarvik.setString("gold", "plan");
    reporter.tarvik.startTrackingTimeForKey("checkout");
    reporter.runtime.advance(2);
    reporter.tarvik.stopTrackingTimeForKey("checkout");
    // The service fails the send, so the issue stays queued to be looked at.
    reporter.runtime.platform().fakeHttpTransport().setResponder(
        [](const HttpRequest&) { return HttpResult::answer(500); });

    reporter.open();
    auto editor = reporter.top<TVKScreenshotViewController>();
    ASSERT_TRUE(editor);
    reporter.tap(*editor->redColorButton());
    reporter.drag({{100, 300}, {140, 330}, {180, 360}, {220, 390}, {260, 420}});
    reporter.tap(*editor->sendButton());
    reporter.runtime.advance(1);
    auto form = reporter.top<TVKCommentsTableViewController>();
    ASSERT_TRUE(form);
    reporter.tap(*form->backButton());
    reporter.runtime.advance(1);
    EXPECT_FALSE(UIApplication::sharedApplication().firstResponder());  // the keyboard went
    reporter.tap(*editor->sendButton());
    reporter.runtime.advance(1);
    form = reporter.top<TVKCommentsTableViewController>();
    ASSERT_TRUE(form);

    reporter.tap(*form->submitButton());
    reporter.runtime.advance(1);  // the alert comes in
    EXPECT_EQ(alertMessageOn(*reporter.window()),
              "Please enter the description about what you are reporting.");
    reporter.tapButtonTitled("OK");
    reporter.runtime.advance(1);
    reporter.tap(*form->emailField());
    reporter.type("ab");
    reporter.tap(*form->commentsView());
    reporter.type("Checkout total is wrong");
    reporter.tap(*form->submitButton());
    reporter.runtime.advance(1);  // the alert comes in
    EXPECT_EQ(alertMessageOn(*reporter.window()),
              "The Optional Email Address provided is invalid.");
    reporter.tapButtonTitled("OK");
    reporter.runtime.advance(1);
    reporter.tap(*form->emailField());
    reporter.type("@x.io");
    std::shared_ptr<TVKIssueSubmission> issue = form->currentIssueSubmission();
    reporter.tap(*form->submitButton());
    reporter.runtime.drain();

    // The session ended: the window fades over 0.25 s; the confirmation shows for 3 s.
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"confirmation?", "generated"}));
    auto windowsShown = [] { return UIApplication::sharedApplication().windows().size(); };
    EXPECT_EQ(windowsShown(), 2u);  // the reporter fading, the confirmation over it
    reporter.runtime.advance(0.3);
    EXPECT_FALSE(reporter.window());
    EXPECT_FALSE(UIApplication::sharedApplication().firstResponder());
    EXPECT_EQ(windowsShown(), 1u);
    reporter.runtime.advance(2.6);
    EXPECT_EQ(windowsShown(), 1u);
    reporter.runtime.advance(0.5);
    EXPECT_EQ(windowsShown(), 0u);
    EXPECT_GT(reporter.tarvik.totalTimeInSubmissionDialog(), 0);
    // The reporter's controls and screens leave no steps; the system's alerts over it do.
    EXPECT_EQ(testsupport::trackingLogMessages(),
              std::vector<std::string>(2, "-[UIAlertController viewWillAppear:]"));
    EXPECT_EQ(reporter.tarvik.userComments(), "Checkout total is wrong");

    // Queued with everything the report is made of.
    reporter.runtime.drain();
    ASSERT_EQ(reporter.issuesIn(Status::Queued), std::vector<std::string>{issue->uuid()});
    std::filesystem::path folder = std::filesystem::path(TVKDirectoryLayout::statusFolderPath(
                                       TVKDirectoryLayout::Kind::Issues, Status::Queued)) /
                                   issue->uuid();
    std::string body = contentsOf(folder / "httpBody.txt");
    for (const char* expected : {"name=\"comments\"\r\n\r\nCheckout total is wrong\r\n",
                                 "name=\"user_properties[email]\"\r\n\r\nab@x.io\r\n",
                                 "name=\"user_properties[identifier]\"\r\n\r\nuser-7\r\n",
                                 "name=\"metadata[plan]\"\r\n\r\ngold\r\n",
                                 "name=\"benchmark[checkout]\"", "filename=\"screenshot.jpg\""}) {
        EXPECT_NE(body.find(expected), std::string::npos) << expected;
    }
    std::optional<Image> screenshot =
        Image::imageWithContentsOfFile(issue->screenshotFilePath(), 2);
    ASSERT_TRUE(screenshot);
    EXPECT_EQ(screenshot->pixelWidth(), 750);
    int red = 0;
    for (int y = 0; y < screenshot->pixelHeight(); ++y) {
        for (int x = 0; x < screenshot->pixelWidth(); ++x) {
            Image::Pixel pixel = screenshot->pixelAt(x, y);
            red += pixel.red > 180 && pixel.green < 100 && pixel.blue < 100;
        }
    }
    // One stroke 7 points wide and about 190 long (at 2 pixels a point, stretched a little
    // onto the screenshot): a missing stroke or a second one shows in the count.
    EXPECT_GT(red, 2500);
    EXPECT_LT(red, 12000);
    Image::Pixel bar = screenshot->pixelAt(20, 20);  // the host's title bar, under no ink
    EXPECT_NEAR(bar.red, 230, 6);
    EXPECT_NEAR(bar.blue, 237, 6);
}

}  // namespace
}  // namespace tarvik
