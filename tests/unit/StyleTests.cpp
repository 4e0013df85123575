#include "Helpers/UIColor+Tarvik.h"
#include "Helpers/UIImage+Tarvik.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

namespace tarvik {
namespace {

using testing::TestRuntime;
using Pixel = Image::Pixel;

constexpr Pixel kClear{0, 0, 0, 0};
constexpr Pixel kBlue{255, 61, 46, 230};  // the blue pen, opaque
constexpr Pixel kRed{255, 230, 58, 46};
constexpr Pixel kGreen{255, 46, 230, 58};
constexpr Pixel kWhite{255, 255, 255, 255};

Image filled(double width, double height, double scale, const Color& color) {
    return *Image::filled(width, height, scale, color.components(), Image::Transparent);
}

TEST(UIColorTarvik, PaletteKeepsItsExactComponentsAndTheBlackPenIsTheDarkTextColour) {
    struct Case {
        Color color;
        int red, green, blue;
    } cases[] = {{tarvik_placeholderTextColor(), 150, 160, 174},
                 {tarvik_darkTextColor(), 57, 63, 71},
                 {tarvik_screenshotBorderColor(), 238, 238, 238},
                 {tarvik_drawContainerBorderColor(), 206, 211, 217},
                 {tarvik_drawBlueColor(), 61, 46, 230},
                 {tarvik_drawGreenColor(), 46, 230, 58},
                 {tarvik_drawRedColor(), 230, 58, 46},
                 {tarvik_drawBlackColor(), 57, 63, 71}};
    for (const Case& c : cases) {
        EXPECT_EQ(c.color, Color::colorWithRed(c.red / 255.0, c.green / 255.0, c.blue / 255.0, 1))
            << c.red << ", " << c.green << ", " << c.blue;
        EXPECT_EQ(c.color.components().alpha, 1.0);
    }
    EXPECT_EQ(tarvik_drawBlackColor(), tarvik_darkTextColor());
    EXPECT_FALSE(tarvik_drawBlackColor() == Color::colorWithRed(0, 0, 0, 1));
}

TEST(UIImageTarvik, FillsAndDiscsAreTransparentBitmapsAtTheScreensScale) {
    TestRuntime runtime;
    runtime.platform().fakeScreen().setScale(3);
    Image bar = *tarvik_imageWithColor(tarvik_drawBlueColor());
    EXPECT_EQ(bar.width(), 1);
    EXPECT_EQ(bar.pixelWidth(), 3);
    EXPECT_FALSE(bar.opaque());
    EXPECT_EQ(bar.pixelAt(2, 2), kBlue);

    // "radius" is the diameter: 24 gives a disc 24 points across, 48 pixels at scale 2.
    for (double scale : {2.0, 3.0}) {
        runtime.platform().fakeScreen().setScale(scale);
        Image disc = *tarvik_circleImageWithColor(tarvik_drawBlueColor(), 24);
        int side = static_cast<int>(24 * scale);
        EXPECT_EQ(disc.width(), 24);
        EXPECT_EQ(disc.scale(), scale);
        ASSERT_EQ(disc.pixelWidth(), side);
        ASSERT_EQ(disc.pixelHeight(), side);
        EXPECT_EQ(disc.pixelAt(side / 2, side / 2), kBlue);
        for (int x : {0, side - 1}) {
            for (int y : {0, side - 1}) {
                EXPECT_EQ(disc.pixelAt(x, y), kClear) << scale << " at " << x << ", " << y;
            }
        }
        // Inscribed: it reaches the middle of the edges, whose pixels it almost covers.
        EXPECT_GT(disc.pixelAt(side / 2, 0).alpha, 230) << scale;
        EXPECT_GT(disc.pixelAt(side - 1, side / 2).alpha, 230) << scale;
    }
}

TEST(UIImageTarvik, AddImageLaysTheOtherAtTheOriginUnscaledWithinTheFirstsSize) {
    TestRuntime runtime;
    runtime.platform().fakeScreen().setScale(2);
    Image disc = *tarvik_circleImageWithColor(tarvik_drawBlueColor(), 24);
    // A 12-point white square at scale 1 covers 24 pixels of the 48, not the whole disc.
    Image tick = filled(12, 12, 1, Color::colorWithRed(1, 1, 1, 1));
    Image selected = *tarvik_addImage(disc, tick);
    EXPECT_EQ(selected.width(), 24);
    EXPECT_EQ(selected.pixelAt(0, 0), kWhite);
    EXPECT_EQ(selected.pixelAt(23, 23), kWhite);
    EXPECT_EQ(selected.pixelAt(24, 24), kBlue);
    EXPECT_EQ(selected.pixelAt(47, 47), kClear);
    EXPECT_EQ(disc.pixelAt(12, 12), kBlue);  // the input is unchanged

    // Something larger is cut to the first image's size; no image at all adds nothing.
    EXPECT_EQ(tarvik_addImage(disc, filled(40, 40, 2, tarvik_drawRedColor()))->width(), 24);
    Image alone = *tarvik_addImage(disc, std::nullopt);
    EXPECT_NE(alone.surface(), disc.surface());
    EXPECT_EQ(alone.pixelAt(24, 24), kBlue);
    EXPECT_EQ(alone.pixelAt(0, 0), kClear);
}

TEST(UIImageTarvik, CombiningCentresBothOnTheLargerCanvasAtRoundedWholePoints) {
    TestRuntime runtime;
    runtime.platform().fakeScreen().setScale(2);
    Image wide = filled(100, 50, 2, tarvik_drawRedColor());
    Image tall = filled(50, 100, 1, tarvik_drawGreenColor());
    Image combined = *tarvik_ImageByCombiningWithImage(wide, tall);
    EXPECT_EQ(combined.width(), 100);
    EXPECT_EQ(combined.height(), 100);
    ASSERT_EQ(combined.pixelWidth(), 200);
    // The wide one at (0, 25) points = rows 50 to 149; the tall one over it at (25, 0).
    EXPECT_EQ(combined.pixelAt(10, 49), kClear);
    EXPECT_EQ(combined.pixelAt(10, 50), kRed);
    EXPECT_EQ(combined.pixelAt(10, 149), kRed);
    EXPECT_EQ(combined.pixelAt(10, 150), kClear);
    EXPECT_EQ(combined.pixelAt(49, 10), kClear);
    EXPECT_EQ(combined.pixelAt(50, 10), kGreen);
    EXPECT_EQ(combined.pixelAt(149, 100), kGreen);
    EXPECT_EQ(combined.pixelAt(150, 10), kClear);

    // 101 against 100 points: the narrower goes to round(0.5) = 1 point, 3 pixels at scale 3.
    runtime.platform().fakeScreen().setScale(3);
    Image odd = *tarvik_ImageByCombiningWithImage(filled(101, 10, 3, tarvik_drawRedColor()),
                                                  filled(100, 10, 3, tarvik_drawGreenColor()));
    EXPECT_EQ(odd.width(), 101);
    EXPECT_EQ(odd.pixelAt(2, 15), kRed);
    EXPECT_EQ(odd.pixelAt(3, 15), kGreen);
    EXPECT_EQ(odd.pixelAt(302, 15), kGreen);
}

TEST(UIImageTarvik, ScaleToSizeKeepsTheSameImageOrStretchesItWithoutKeepingTheAspect) {
    TestRuntime runtime;
    runtime.platform().fakeScreen().setScale(2);
    // Left half red, right half blue, 10 × 10 points at scale 1.
    Image halves = *Image::render(10, 10, 1, Image::Transparent, [](cairo_t* context) {
        tarvik_drawRedColor().setAsSourceIn(context);
        cairo_rectangle(context, 0, 0, 5, 10);
        cairo_fill(context);
        tarvik_drawBlueColor().setAsSourceIn(context);
        cairo_rectangle(context, 5, 0, 5, 10);
        cairo_fill(context);
    });
    // The same image: copies of an Image are the same image when they share their surface.
    EXPECT_EQ(tarvik_ScaleToSize(halves, {10, 10})->surface(), halves.surface());

    Image stretched = *tarvik_ScaleToSize(halves, {40, 10});
    EXPECT_EQ(stretched.width(), 40);
    EXPECT_EQ(stretched.height(), 10);
    ASSERT_EQ(stretched.pixelWidth(), 80);
    ASSERT_EQ(stretched.pixelHeight(), 20);
    // Only the width grows fourfold; edges stay as solid as the inside.
    for (int y : {0, 10, 19}) {
        EXPECT_EQ(stretched.pixelAt(0, y), kRed) << y;
        EXPECT_EQ(stretched.pixelAt(35, y), kRed) << y;
        EXPECT_EQ(stretched.pixelAt(45, y), kBlue) << y;
        EXPECT_EQ(stretched.pixelAt(79, y), kBlue) << y;
    }
    EXPECT_EQ(halves.pixelWidth(), 10);
}

TEST(UIImageTarvik, ScalingAndCombiningBurnsTheDrawingExactlyOverTheScreenshot) {
    TestRuntime runtime;
    runtime.platform().fakeScreen().setScale(3);
    // An opaque screenshot with a different colour in every pixel row and column.
    Image screenshot = *Image::render(40, 30, 3, Image::Opaque, [](cairo_t* context) {
        cairo_pattern_t* ramp = cairo_pattern_create_linear(0, 0, 40, 30);
        cairo_pattern_add_color_stop_rgb(ramp, 0, 0.1, 0.8, 0.3);
        cairo_pattern_add_color_stop_rgb(ramp, 1, 0.9, 0.2, 0.6);
        cairo_set_source(context, ramp);
        cairo_paint(context);
        cairo_pattern_destroy(ramp);
    });
    // The drawing: transparent but for an opaque stroke and a half-transparent patch.
    Image drawing = *Image::render(40, 30, 3, Image::Transparent, [](cairo_t* context) {
        tarvik_drawBlueColor().setAsSourceIn(context);
        cairo_rectangle(context, 5, 5, 10, 2);
        cairo_fill(context);
        cairo_set_source_rgba(context, 1, 1, 1, 0.5);
        cairo_rectangle(context, 20, 10, 10, 10);
        cairo_fill(context);
    });
    Image burnt = *tarvik_ImageByScalingAndCombiningImage(screenshot, drawing);
    ASSERT_EQ(burnt.pixelWidth(), 120);
    ASSERT_EQ(burnt.pixelHeight(), 90);
    for (int y = 0; y < 90; ++y) {
        for (int x = 0; x < 120; ++x) {
            Pixel under = screenshot.pixelAt(x, y);
            Pixel ink = drawing.pixelAt(x, y);
            // Premultiplied "over": ink + under × (1 - ink alpha).
            auto over = [&](int top, int bottom) {
                return top + (bottom * (255 - ink.alpha) + 127) / 255;
            };
            Pixel seen = burnt.pixelAt(x, y);
            ASSERT_EQ(seen.alpha, 255) << x << ", " << y;
            ASSERT_NEAR(seen.red, over(ink.red, under.red), 1) << x << ", " << y;
            ASSERT_NEAR(seen.green, over(ink.green, under.green), 1) << x << ", " << y;
            ASSERT_NEAR(seen.blue, over(ink.blue, under.blue), 1) << x << ", " << y;
        }
    }
    EXPECT_EQ(burnt.pixelAt(30, 18), kBlue);

    // A drawing made at half the size is stretched over the whole screenshot.
    Image small = filled(20, 15, 2, tarvik_drawRedColor());
    EXPECT_EQ(tarvik_ImageByScalingAndCombiningImage(screenshot, small)->pixelAt(119, 89), kRed);
    // Without a drawing: a fresh copy of the screenshot at the screen's scale.
    runtime.platform().fakeScreen().setScale(2);
    Image copy = *tarvik_ImageByScalingAndCombiningImage(screenshot, std::nullopt);
    EXPECT_NE(copy.surface(), screenshot.surface());
    EXPECT_EQ(copy.pixelWidth(), 80);
    EXPECT_EQ(copy.width(), 40);
    EXPECT_EQ(copy.pixelAt(0, 0).alpha, 255);
}

}  // namespace
}  // namespace tarvik
