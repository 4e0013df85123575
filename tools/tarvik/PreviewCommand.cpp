// `tarvik preview`: runs the reporter in this process over a screenshot given as the host's
// window, on the test platform's screen and clock, and writes what the screen shows at each
// step of a report as a PNG of the screenshot's pixel size.

#include "Command.h"

#include "Platform/Testing/ReporterDriver.h"
#include "Views/TVKCommentsTableViewController.h"
#include "Views/TVKInstructionAlertView.h"
#include "Views/TVKScreenshotViewController.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numbers>

namespace tarvik::tool {

std::optional<double> parseScale(const std::string& text) {
    try {
        size_t used = 0;
        double scale = std::stod(text, &used);
        if (used == text.size() && scale > 0 && std::isfinite(scale)) {
            return scale;
        }
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

namespace {

struct PreviewFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A fresh SDK whose screen is the screenshot's size in points and whose host window is it.
struct PreviewScreen {
    testing::ReporterDriver reporter;
    std::filesystem::path out;

    PreviewScreen(const Image& screenshot, std::filesystem::path folder) : out(std::move(folder)) {
        testing::TestingPlatform& platform = reporter.runtime.platform();
        platform.fakeScreen().setScale(screenshot.scale());
        platform.fakeScreen().setBounds({{0, 0}, {screenshot.width(), screenshot.height()}});
        platform.hostWindow().setImage(screenshot);
        reporter.tarvik.configureDirectories();
    }

    void write(const std::string& name) {
        std::optional<Data> png = reporter.screen().pngRepresentation();
        std::filesystem::path path = out / name;
        std::ofstream file(path, std::ios::binary);
        if (!png || !file.write(reinterpret_cast<const char*>(png->data()),
                                static_cast<std::streamsize>(png->size()))) {
            throw PreviewFailed("cannot write " + path.string());
        }
        std::printf("%s\n", path.c_str());
    }
};

// A loop around the middle of the screen, as a user circles a problem.
std::vector<Point> circleAround(Point centre, double radius) {
    std::vector<Point> points;
    for (int step = 0; step <= 40; ++step) {
        double angle = 2 * std::numbers::pi * step / 36;  // a little past closing the loop
        points.push_back(
            {centre.x + radius * std::cos(angle), centre.y + radius * 0.8 * std::sin(angle)});
    }
    return points;
}

void previewReport(const Image& screenshot, const std::filesystem::path& out) {
    PreviewScreen screen(screenshot, out);
    testing::ReporterDriver& reporter = screen.reporter;
    reporter.tarvik.setProcessType(TarvikProcessTypeManual);
    reporter.open();
    screen.write("editor.png");

    auto editor = reporter.top<TVKScreenshotViewController>();
    reporter.tap(*editor->redColorButton());
    Rect canvas = editor->drawingView()->convertRectToView(editor->drawingView()->bounds(),
                                                           reporter.window().get());
    reporter.drag(circleAround(
        {canvas.origin.x + canvas.size.width / 2, canvas.origin.y + canvas.size.height * 0.4},
        canvas.size.width * 0.25));
    reporter.runtime.advance(1);  // the tool bars spring back
    screen.write("editor-red.png");

    reporter.tap(*editor->sendButton());
    reporter.runtime.advance(1);
    auto form = reporter.top<TVKCommentsTableViewController>();
    if (!form) {
        throw PreviewFailed("Send did not open the comments form");
    }
    screen.write("comments.png");

    reporter.tap(*form->submitButton());
    reporter.runtime.advance(1);
    screen.write("alert-description.png");
    reporter.tapButtonTitled("OK");
    reporter.runtime.advance(1);

    reporter.tap(*form->emailField());
    reporter.type("ab");
    reporter.tap(*form->commentsView());
    reporter.type("The total stays at zero after adding a second item to the cart.");
    reporter.tap(*form->submitButton());
    reporter.runtime.advance(1);
    screen.write("alert-email.png");
    reporter.tapButtonTitled("OK");
    reporter.runtime.advance(1);

    reporter.tap(*form->emailField());
    reporter.type("@example.com");
    reporter.tap(*form->submitButton());
    reporter.runtime.drain();
    reporter.runtime.advance(0.5);  // the reporter has faded; the confirmation shows at once
    screen.write("confirmation.png");
}

void previewInstruction(const Image& screenshot, const std::filesystem::path& out,
                        TarvikProcessType processType, const std::string& name) {
    PreviewScreen screen(screenshot, out);
    // The first type set offers the card; it enters 3 s later with a 0.25 s spring.
    screen.reporter.tarvik.setProcessType(processType);
    screen.reporter.runtime.advance(3.5);
    screen.write(name);
}

}  // namespace

int previewCommand(const Arguments& arguments) {
    const char* usage = "usage: tarvik preview --screenshot PNG --out DIR [--scale S]\n";
    std::string screenshotPath, outPath, scaleText = "1";
    for (size_t i = 0; i + 1 < arguments.size(); i += 2) {
        const std::string& option = arguments[i];
        std::string* target = option == "--screenshot" ? &screenshotPath
                              : option == "--out"      ? &outPath
                              : option == "--scale"    ? &scaleText
                                                       : nullptr;
        if (!target) {
            std::fprintf(stderr, "%s", usage);
            return 2;
        }
        *target = arguments[i + 1];
    }
    if (arguments.size() % 2 != 0 || screenshotPath.empty() || outPath.empty()) {
        std::fprintf(stderr, "%s", usage);
        return 2;
    }
    std::optional<double> scale = parseScale(scaleText);
    if (!scale) {
        std::fprintf(stderr, "tarvik: the scale must be a positive number: %s\n",
                     scaleText.c_str());
        return 1;
    }
    std::optional<Image> screenshot = Image::imageWithContentsOfFile(screenshotPath, *scale);
    if (!screenshot) {
        std::fprintf(stderr, "tarvik: %s is not a readable PNG or JPEG\n", screenshotPath.c_str());
        return 1;
    }
    std::error_code error;
    std::filesystem::create_directories(outPath, error);
    if (error) {
        std::fprintf(stderr, "tarvik: cannot create %s: %s\n", outPath.c_str(),
                     error.message().c_str());
        return 1;
    }
    try {
        previewReport(*screenshot, outPath);
        previewInstruction(*screenshot, outPath, TarvikProcessTypeShake, "instruction-shake.png");
        previewInstruction(*screenshot, outPath, TarvikProcessTypeScreenshot,
                           "instruction-screenshot.png");
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "tarvik: %s\n", failure.what());
        return 1;
    }
    return 0;
}

}  // namespace tarvik::tool
