#include "Kit/Render/SoftwareRenderer.h"
#include "Kit/UIApplication.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKQuadDrawView.h"
#include "support/ExternalTools.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace tarvik {
namespace {

using testing::TestRuntime;

// A 100 x 100 canvas filling a window, at the fake screen's scale of 2, and a finger on it.
class Canvas : public ::testing::Test {
  protected:
    TestRuntime test;
    std::shared_ptr<UIWindow> window = std::make_shared<UIWindow>(Rect{{0, 0}, {100, 100}});
    std::shared_ptr<TVKQuadDrawView> canvas =
        std::make_shared<TVKQuadDrawView>(Rect{{0, 0}, {100, 100}});

    Canvas() {
        window->addSubview(canvas);
        window->setHidden(false);  // a hidden window takes no touches
    }

    void touch(UITouchPhase phase, Point point, std::uint64_t finger = 1) {
        UIApplication::sharedApplication().handleTouch(window, finger, phase, point);
    }
    // Down at the first point, through the rest, up at the last; one point is a tap.
    void stroke(const std::vector<Point>& points) {
        touch(UITouchPhase::Began, points.front());
        for (size_t i = 1; i < points.size(); ++i) {
            touch(UITouchPhase::Moved, points[i]);
        }
        touch(UITouchPhase::Ended, points.back());
    }
    int alphaAt(Point point) const {
        return canvas->drawnImage()
            ->pixelAt(static_cast<int>(point.x * 2), static_cast<int>(point.y * 2))
            .alpha;
    }
};

TEST_F(Canvas, ATapLeavesADotOfTheLineWidthsRadiusAndTheEraserClearsOneOf25) {
    EXPECT_FALSE(canvas->drawnImage());
    stroke({{50, 50}});
    ASSERT_TRUE(canvas->drawnImage());
    EXPECT_EQ(canvas->drawnImage()->width(), 100);
    EXPECT_EQ(canvas->drawnImage()->pixelWidth(), 200);
    EXPECT_EQ(canvas->drawnImage()->pixelAt(100, 100), (Image::Pixel{255, 0, 0, 0}));  // black
    for (Point direction : {Point{1, 0}, Point{0, -1}, Point{-0.6, 0.8}}) {
        EXPECT_EQ(alphaAt({50 + 6 * direction.x, 50 + 6 * direction.y}), 255);
        EXPECT_EQ(alphaAt({50 + 7.5 * direction.x, 50 + 7.5 * direction.y}), 0);
    }

    // Straight strokes (one move each) 7 wide every 5 points cover the middle; an eraser tap
    // clears a disc of radius 25 out of it.
    canvas->reset();
    EXPECT_FALSE(canvas->drawnImage());
    for (double y = 15; y <= 85; y += 5) {
        stroke({{5, y}, {95, y}});
    }
    canvas->setEraserModeEnabled(true);
    stroke({{50, 50}});
    for (Point direction : {Point{1, 0}, Point{0, 1}, Point{-0.8, -0.6}}) {
        EXPECT_EQ(alphaAt({50 + 24 * direction.x, 50 + 24 * direction.y}), 0);
        EXPECT_EQ(alphaAt({50 + 26 * direction.x, 50 + 26 * direction.y}), 255);
    }
    // The width belongs to the path: turning the eraser on during a stroke erases all of it,
    // 25 points wide.
    canvas->setEraserModeEnabled(false);
    touch(UITouchPhase::Began, {10, 80});
    touch(UITouchPhase::Moved, {90, 80});
    canvas->setEraserModeEnabled(true);
    touch(UITouchPhase::Ended, {90, 80});
    EXPECT_EQ(alphaAt({85, 68}), 0);
    EXPECT_EQ(alphaAt({85, 66}), 255);
}

TEST_F(Canvas, AnErasingStrokeClearsOnlyTheCanvasAndOnAnEmptyOneMakesATransparentBitmap) {
    // While the finger is down the stroke is drawn live: it clears ink, never the screen
    // under the canvas.
    window->setBackgroundColor(Color::colorWithRed(1, 0, 0, 1));
    stroke({{10, 40}, {90, 40}});
    canvas->setEraserModeEnabled(true);
    touch(UITouchPhase::Began, {50, 10});
    for (double y : {30, 50, 70, 90}) {
        touch(UITouchPhase::Moved, {50, y});
    }
    const Image live = *SoftwareRenderer::render(*window, 2);
    EXPECT_EQ(live.pixelAt(100, 80), (Image::Pixel{255, 255, 0, 0}));
    EXPECT_EQ(live.pixelAt(40, 80), (Image::Pixel{255, 0, 0, 0}));  // ink the eraser missed
    touch(UITouchPhase::Ended, {50, 90});

    canvas->reset();
    stroke({{20, 20}, {60, 70}});
    ASSERT_TRUE(canvas->drawnImage());
    for (int y = 0; y < 200; y += 3) {
        for (int x = 0; x < 200; x += 3) {
            ASSERT_EQ(canvas->drawnImage()->pixelAt(x, y).alpha, 0) << x << ", " << y;
        }
    }
}

// Samples b and d are overwritten by the midpoints before they are used: the curve runs
// (10,50) -> (35,20) around (20,20), then -> (65,20) around (50,20), and a line ends it at
// (80,20). Python's cairo bindings draw that expected path on their own.
TEST_F(Canvas, StrokesAreQuadraticCurvesThroughMidpointsOfEveryOtherSample) {
    canvas->setStrokeColor(Color::colorWithRed(230 / 255.0, 58 / 255.0, 46 / 255.0, 1));
    stroke({{10, 50}, {20, 20}, {35, 80}, {50, 20}, {65, 80}, {80, 20}});
    std::string drawn = test.root() + "/drawn.png";
    testsupport::writeFile(drawn, *canvas->drawnImage()->pngRepresentation());
    testsupport::CommandResult compared = testsupport::runPython(R"(
import sys, cairo
def quad(context, control, end):
    x0, y0 = context.get_current_point()
    (cx, cy), (x, y) = control, end
    context.curve_to(x0 + 2 * (cx - x0) / 3, y0 + 2 * (cy - y0) / 3,
                     x + 2 * (cx - x) / 3, y + 2 * (cy - y) / 3, x, y)
expected = cairo.ImageSurface(cairo.FORMAT_ARGB32, 200, 200)
context = cairo.Context(expected)
context.scale(2, 2)
context.move_to(10, 50)
quad(context, (20, 20), (35, 20))
quad(context, (50, 20), (65, 20))
context.move_to(65, 20)
context.line_to(80, 20)
context.set_source_rgb(230 / 255, 58 / 255, 46 / 255)
context.set_line_width(7)
context.stroke()
drawn = cairo.ImageSurface.create_from_png(sys.argv[1])
a, b = expected.get_data(), drawn.get_data()
worst = max(abs(a[i] - b[i]) for i in range(len(a)))
inked = sum(1 for i in range(3, len(a), 4) if a[i] == 255)
print(worst, inked)
)",
                                                                 testsupport::shellQuoted(drawn));
    ASSERT_EQ(compared.exitCode, 0) << compared.output;
    int worst = -1, inked = 0;
    std::sscanf(compared.output.c_str(), "%d %d", &worst, &inked);
    EXPECT_LE(worst, 2) << compared.output;
    EXPECT_GT(inked, 2000) << compared.output;  // the stroke is really there
    EXPECT_EQ(alphaAt({20, 80}), 0);            // the thinned sample (35, 80) is never reached
}

class RecordingDelegate : public TVKQuadDrawViewDelegate {
  public:
    std::vector<std::string> calls;
    void quadDrawViewDidStartDrawing(TVKQuadDrawView& canvas) override {
        calls.push_back(canvas.drawnImage() ? "start (inked)" : "start");
    }
    void quadDrawViewDidStopDrawing(TVKQuadDrawView& canvas) override {
        calls.push_back(canvas.drawnImage() ? "stop (inked)" : "stop");
    }
};

TEST_F(Canvas, ReportsStrokesToAWeakDelegateAndTakesOneFingerOnly) {
    auto delegate = std::make_shared<RecordingDelegate>();
    canvas->setDelegate(delegate);
    touch(UITouchPhase::Began, {30, 30});
    touch(UITouchPhase::Began, {70, 70}, 2);  // a second finger is not the canvas's
    touch(UITouchPhase::Ended, {70, 70}, 2);
    for (double y : {40, 50, 60}) {
        touch(UITouchPhase::Moved, {30, y});
    }
    // The stroke in progress shows live over the bitmap, before it is baked.
    Image live = *Image::render(100, 100, 2, Image::Transparent, [&](cairo_t* context) {
        canvas->drawRect(context, {{0, 0}, {100, 100}});
    });
    EXPECT_EQ(live.pixelAt(60, 90).alpha, 255);
    touch(UITouchPhase::Cancelled, {30, 60});  // a cancelled stroke is kept
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"start", "stop (inked)"}));
    EXPECT_EQ(alphaAt({30, 45}), 255);
    EXPECT_EQ(alphaAt({70, 70}), 0);

    delegate.reset();  // the canvas does not keep its delegate alive
    stroke({{10, 10}});
    EXPECT_EQ(alphaAt({10, 10}), 255);
}

}  // namespace
}  // namespace tarvik
