#include "Helpers/UIColor+Tarvik.h"
#include "Kit/Render/FrameRenderer.h"
#include "Kit/Render/SoftwareRenderer.h"
#include "Kit/UIApplication.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKQuadDrawView.h"

#include <gtest/gtest.h>

#include <cstring>

namespace tarvik {
namespace {

using testing::TestRuntime;

// A stand-in for the screenshot: an image of a gradient over all of its bounds. (A gradient
// drawn directly may differ by one level where a clip makes Cairo start a span elsewhere.)
class Backdrop : public UIView {
  public:
    explicit Backdrop(Rect frame)
        : UIView(frame),
          image_(*Image::render(
              frame.size.width, frame.size.height, 2, Image::Opaque, [&](cairo_t* context) {
                  cairo_pattern_t* gradient =
                      cairo_pattern_create_linear(0, 0, frame.size.width, frame.size.height);
                  cairo_pattern_add_color_stop_rgb(gradient, 0, 0.9, 0.6, 0.2);
                  cairo_pattern_add_color_stop_rgb(gradient, 1, 0.1, 0.3, 0.8);
                  cairo_set_source(context, gradient);
                  cairo_paint(context);
                  cairo_pattern_destroy(gradient);
              })) {}
    void drawRect(cairo_t* context, Rect) override {
        cairo_set_source_surface(context, image_.surface(), 0, 0);
        cairo_paint(context);
    }

  private:
    Image image_;
};

// How many pixels of two images of one size differ.
int differingPixels(const Image& a, const Image& b) {
    cairo_surface_t* left = a.surface();
    cairo_surface_t* right = b.surface();
    int width = cairo_image_surface_get_width(left);
    int height = cairo_image_surface_get_height(left);
    EXPECT_EQ(width, cairo_image_surface_get_width(right));
    EXPECT_EQ(height, cairo_image_surface_get_height(right));
    int differing = 0;
    for (int y = 0; y < height; ++y) {
        const auto* rowA = reinterpret_cast<const std::uint32_t*>(
            cairo_image_surface_get_data(left) + y * cairo_image_surface_get_stride(left));
        const auto* rowB = reinterpret_cast<const std::uint32_t*>(
            cairo_image_surface_get_data(right) + y * cairo_image_surface_get_stride(right));
        for (int x = 0; x < width; ++x) {
            differing += rowA[x] != rowB[x];
        }
    }
    return differing;
}

// The editor in small: a screenshot, a rounded tool bar with a button, a turned and a faded
// view, and the canvas over all, in a 200 x 300 window at the fake screen's scale of 2.
class FrameRendering : public ::testing::Test {
  protected:
    TestRuntime test;
    Rect full{{0, 0}, {200, 300}};
    std::shared_ptr<UIWindow> window = std::make_shared<UIWindow>(full);
    std::shared_ptr<UIView> bar = std::make_shared<UIView>(Rect{{8, 244}, {184, 48}});
    std::shared_ptr<UIView> button = std::make_shared<UIView>(Rect{{150, 8}, {48, 32}});
    std::shared_ptr<UIView> turned = std::make_shared<UIView>(Rect{{30, 40}, {60, 20}});
    std::shared_ptr<UIView> faded = std::make_shared<UIView>(Rect{{120, 60}, {50, 50}});
    std::shared_ptr<TVKQuadDrawView> canvas = std::make_shared<TVKQuadDrawView>(full);
    FrameRenderer frames{window, 2};

    FrameRendering() {
        window->addSubview(std::make_shared<Backdrop>(full));
        bar->setBackgroundColor(Color::colorWithRed(1, 1, 1, 1));
        bar->setLayerStyle({tarvik_drawContainerBorderColor(), 1, 8});
        bar->setClipsToBounds(true);
        button->setBackgroundColor(tarvik_drawBlueColor());  // runs past the bar's edge
        bar->addSubview(button);
        turned->setBackgroundColor(tarvik_drawRedColor());
        turned->setTransform(AffineTransform::rotation(0.3));
        faded->setBackgroundColor(tarvik_drawGreenColor());
        faded->setAlpha(0.5);
        for (const auto& view : {bar, turned, faded}) {
            window->addSubview(view);
        }
        window->addSubview(canvas);
        window->setHidden(false);
        canvas->setStrokeColor(tarvik_drawRedColor());
    }

    void touch(UITouchPhase phase, Point point) {
        UIApplication::sharedApplication().handleTouch(window, 1, phase, point);
    }
    // The next frame, and how many of its pixels differ from a full repaint.
    int differenceFromFullRepaint(RenderedFrame* frame = nullptr) {
        RenderedFrame rendered = frames.renderFrame();
        if (frame) {
            *frame = rendered;
        }
        return differingPixels(*frames.snapshot(), *SoftwareRenderer::render(*window, 2));
    }
};

TEST_F(FrameRendering, EachIncrementalFrameHasThePixelsOfAFullRepaint) {
    RenderedFrame frame;
    EXPECT_EQ(differenceFromFullRepaint(&frame), 0);
    ASSERT_EQ(frame.damage.size(), 1u);
    EXPECT_EQ(frame.damage[0], full);
    EXPECT_TRUE(frames.renderFrame().damage.empty());  // nothing changed

    touch(UITouchPhase::Began, {20, 150});
    for (Point sample : {Point{40, 160}, {60, 150}, {80, 175}, {100, 140}, {130, 170}}) {
        touch(UITouchPhase::Moved, sample);
        EXPECT_EQ(differenceFromFullRepaint(), 0);
    }

    bar->setCenter({110, 250});  // moved: its old place shows the screenshot again
    faded->setAlpha(0.8);
    turned->setHidden(true);
    EXPECT_EQ(differenceFromFullRepaint(), 0);

    faded->removeFromSuperview();
    auto added = std::make_shared<UIView>(Rect{{4, 4}, {30, 30}});
    added->setBackgroundColor(tarvik_drawBlueColor());
    bar->addSubview(added);
    EXPECT_EQ(differenceFromFullRepaint(), 0);

    UIView::animateWithDuration(0.6, 0, 0.68, 0, 0, [&] { bar->setCenter({100, 150}); }, {});
    test.advance(0.1);
    EXPECT_EQ(differenceFromFullRepaint(&frame), 0);
    EXPECT_TRUE(frame.animating);
    test.advance(0.5);
    EXPECT_EQ(differenceFromFullRepaint(&frame), 0);  // the last step lands at the end
    EXPECT_FALSE(frame.animating);
    EXPECT_FALSE(frame.damage.empty());

    touch(UITouchPhase::Ended, {130, 170});
    EXPECT_EQ(differenceFromFullRepaint(), 0);
}

TEST_F(FrameRendering, AStrokeDamagesOnlyTheStrokesArea) {
    frames.renderFrame();
    touch(UITouchPhase::Began, {50, 100});
    touch(UITouchPhase::Moved, {60, 104});
    touch(UITouchPhase::Moved, {70, 110});
    EXPECT_TRUE(frames.renderFrame().damage.empty());  // no curve yet: every other sample counts
    touch(UITouchPhase::Moved, {80, 112});
    RenderedFrame frame = frames.renderFrame();
    // The curve runs from (50, 100) to (70, 108), 7 points wide.
    ASSERT_FALSE(frame.damage.empty());
    double area = 0;
    for (Rect rect : frame.damage) {
        EXPECT_GE(rect.origin.x, 40);
        EXPECT_GE(rect.origin.y, 90);
        EXPECT_LE(rect.origin.x + rect.size.width, 80);
        EXPECT_LE(rect.origin.y + rect.size.height, 118);
        area += rect.size.width * rect.size.height;
    }
    EXPECT_GE(area, 20 * 8);
    EXPECT_FALSE(frame.animating);
}

}  // namespace
}  // namespace tarvik
