#include "IssueReport.h"

#include <tarvik/Host.h>
#include <tarvik/Tarvik.h>

#include "Models/TVKIssueSubmission.h"
#include "Platform/Linux/LinuxPlatform.h"
#include "Platform/Runtime.h"
#include "Platform/Testing/ReporterFingers.h"
#include "Views/TVKCommentsTableViewController.h"
#include "Views/TVKScreenshotViewController.h"

#include <cstdio>
#include <vector>

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

}  // namespace

bool fileIssueReport(Tarvik& sdk, const std::string& description, const ReportTrigger& trigger,
                     const std::function<void(const std::string&)>& report) {
    auto& platform = dynamic_cast<LinuxPlatform&>(Runtime::current().platform());
    auto& screen = dynamic_cast<DesktopScreenMetrics&>(platform.screen());
    screen.set({{0, 0}, {375, 667}}, 2);
    platform.hostWindow().setCapture(hostScreen);

    // A person's pauses run the SDK's main loop, so animations and timers run in real time.
    testing::ReporterFingers person([](double seconds) { runMainLoop(seconds); });
    trigger.start();
    runMainLoop(5, [&] { return sdk.window() != nullptr; });
    if (trigger.settle) {
        trigger.settle();
    }
    auto editor = person.top<TVKScreenshotViewController>();
    if (!editor) {
        std::fprintf(stderr, "host: the reporter did not open\n");
        return false;
    }
    person.wait(0.5);
    person.tap(*editor->redColorButton());
    std::vector<Point> stroke;
    for (double x = 100; x <= 280; x += 10) {
        stroke.push_back({x, 330});
    }
    person.drag(stroke);
    person.tap(*editor->sendButton());
    person.wait(0.8);  // the form slides in and takes the focus

    auto form = person.top<TVKCommentsTableViewController>();
    if (!form) {
        std::fprintf(stderr, "host: Send did not open the comments form\n");
        return false;
    }
    // The e-mail field shows the session's address already; the tester keeps it.
    person.tap(*form->commentsView());
    person.type(description);
    std::shared_ptr<TVKIssueSubmission> issue = form->currentIssueSubmission();
    person.tap(*form->submitButton());
    // The issue goes on once its files are gathered and the reporter closes.
    runMainLoop(10, [&] { return !sdk.window(); });
    if (sdk.window()) {
        std::fprintf(stderr, "host: the reporter did not close after Submit (e-mail \"%s\")\n",
                     form->emailField()->text().c_str());
        return false;
    }
    report("issue " + issue->uuid());
    return true;
}
