#include "IssueReport.h"

#include <tarvik/Host.h>
#include <tarvik/Tarvik.h>

#include "Kit/UIApplication.h"
#include "Kit/UINavigationController.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/Linux/LinuxPlatform.h"
#include "Platform/Runtime.h"
#include "Views/TVKCommentsTableViewController.h"
#include "Views/TVKScreenshotViewController.h"

#include <cstdio>

namespace {

using namespace tarvik;

// The app's screen: a grey-blue bar over a white page with rows of darker blocks.
std::optional<Image> hostScreen(double scale) {
    return Image::render(375, 667, scale, Image::Opaque, [](cairo_t* context) {
        cairo_set_source_rgb(context, 1, 1, 1);
        cairo_paint(context);
        cairo_set_source_rgb(context, 0.25, 0.35, 0.55);
        cairo_rectangle(context, 0, 0, 375, 64);
        cairo_fill(context);
        cairo_set_source_rgb(context, 0.75, 0.78, 0.82);
        for (double y = 90; y < 640; y += 60) {
            cairo_rectangle(context, 16, y, 343, 36);
        }
        cairo_fill(context);
    });
}

void touch(const std::shared_ptr<UIWindow>& window, UITouchPhase phase, Point point) {
    UIApplication::sharedApplication().handleTouch(window, 1, phase, point);
}

void tap(const std::shared_ptr<UIWindow>& window, const UIView& view) {
    Rect frame = view.convertRectToView(view.bounds(), window.get());
    Point centre{frame.origin.x + frame.size.width / 2, frame.origin.y + frame.size.height / 2};
    touch(window, UITouchPhase::Began, centre);
    touch(window, UITouchPhase::Ended, centre);
}

void type(const std::string& text) {
    auto input =
        std::dynamic_pointer_cast<UIKeyInput>(UIApplication::sharedApplication().firstResponder());
    if (input) {
        input->insertText(text);
    }
}

template <class Screen>
std::shared_ptr<Screen> topScreen(Tarvik& sdk) {
    auto navigation = std::dynamic_pointer_cast<UINavigationController>(
        sdk.window() ? sdk.window()->rootViewController() : nullptr);
    return navigation ? std::dynamic_pointer_cast<Screen>(navigation->topViewController())
                      : nullptr;
}

}  // namespace

bool fileIssueReport(Tarvik& sdk, const std::string& description,
                     const std::function<void(const std::string&)>& report) {
    auto& platform = dynamic_cast<LinuxPlatform&>(Runtime::current().platform());
    auto& screen = dynamic_cast<DesktopScreenMetrics&>(platform.screen());
    screen.set({{0, 0}, {375, 667}}, 2);
    platform.hostWindow().setCapture(hostScreen);

    sdk.presentReportIssueController();
    auto editor = topScreen<TVKScreenshotViewController>(sdk);
    if (!editor) {
        std::fprintf(stderr, "host: the reporter did not open\n");
        return false;
    }
    std::shared_ptr<UIWindow> window = sdk.window();
    tap(window, *editor->redColorButton());
    for (double x = 100; x <= 280; x += 10) {
        touch(window, x == 100 ? UITouchPhase::Began : UITouchPhase::Moved, {x, 330});
    }
    touch(window, UITouchPhase::Ended, {280, 330});
    tap(window, *editor->sendButton());
    runMainLoop(0.6);  // the form slides in and takes the focus

    auto form = topScreen<TVKCommentsTableViewController>(sdk);
    if (!form) {
        std::fprintf(stderr, "host: Send did not open the comments form\n");
        return false;
    }
    tap(window, *form->emailField());
    type("qa@example.com");
    tap(window, *form->commentsView());
    type(description);
    std::shared_ptr<TVKIssueSubmission> issue = form->currentIssueSubmission();
    tap(window, *form->submitButton());
    // The issue goes on once its files are gathered and the reporter closes.
    runMainLoop(10, [&] { return !sdk.window(); });
    if (sdk.window()) {
        std::fprintf(stderr, "host: the reporter did not close after Submit\n");
        return false;
    }
    report("issue " + issue->uuid());
    return true;
}
