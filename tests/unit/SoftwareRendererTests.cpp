#include "Helpers/UIColor+Tarvik.h"
#include "Kit/Render/SoftwareRenderer.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <numbers>

namespace tarvik {
namespace {

using Pixel = Image::Pixel;

constexpr Pixel kWhite{255, 255, 255, 255};

Pixel opaque(const Color& color) {
    auto byte = [](double component) { return static_cast<std::uint8_t>(component * 255 + 0.5); };
    return {255, byte(color.red()), byte(color.green()), byte(color.blue())};
}

std::shared_ptr<UIView> viewWith(Rect frame, std::optional<Color> background) {
    auto view = std::make_shared<UIView>(frame);
    view->setBackgroundColor(background);
    return view;
}

// A view that draws a filled square larger than itself in its own drawRect.
class Overflowing : public UIView {
  public:
    using UIView::UIView;
    void drawRect(cairo_t* context, Rect) override {
        tarvik_drawRedColor().setAsSourceIn(context);
        cairo_rectangle(context, -10, -10, 100, 100);
        cairo_fill(context);
    }
};

// The editor's pen tool bar over a dark screen: white, bordered, rounded and clipping, with a
// rotated child, a half-transparent one and one hidden.
TEST(SoftwareRenderer, DrawsBackgroundsBordersCornersClippingRotationAndAlpha) {
    testing::TestRuntime test;  // the media time that animations are rendered at
    Color dark = tarvik_darkTextColor();
    auto screen = viewWith({{0, 0}, {220, 80}}, dark);
    auto bar = viewWith({{8, 16}, {196, 48}}, Color::colorWithRed(1, 1, 1, 1));
    bar->setLayerStyle({tarvik_drawContainerBorderColor(), 1.0, 8.0});
    bar->setClipsToBounds(true);
    screen->addSubview(bar);
    auto turned = viewWith({{20, 14}, {40, 20}}, tarvik_drawBlueColor());  // centre (40, 24)
    turned->setTransform(AffineTransform::rotation(std::numbers::pi / 2));
    bar->addSubview(turned);
    auto faded = viewWith({{100, 8}, {32, 32}}, tarvik_drawGreenColor());
    faded->setAlpha(0.5);
    bar->addSubview(faded);
    auto hidden = viewWith({{140, 8}, {32, 32}}, tarvik_drawRedColor());
    hidden->setHidden(true);
    bar->addSubview(hidden);
    auto overflowing = std::make_shared<Overflowing>(Rect{{150, 8}, {20, 20}});
    bar->addSubview(overflowing);
    auto spilling = viewWith({{180, 30}, {40, 40}}, tarvik_drawBlueColor());  // past the corner
    bar->addSubview(spilling);

    Image image = *SoftwareRenderer::render(*screen, 2);
    ASSERT_EQ(image.pixelWidth(), 440);
    auto at = [&](double x, double y) {
        return image.pixelAt(static_cast<int>(x * 2), static_cast<int>(y * 2));
    };
    EXPECT_EQ(at(4, 4), opaque(dark));
    EXPECT_EQ(at(100, 60), kWhite);                                       // the bar
    EXPECT_EQ(at(100, 16.2), opaque(tarvik_drawContainerBorderColor()));  // its border, inside
    EXPECT_EQ(at(8.5, 16.5), opaque(dark));                               // a rounded corner
    // Turned a quarter about its centre: 20 wide and 40 high around (8 + 40, 16 + 24).
    EXPECT_EQ(at(48, 16 + 24 - 18), opaque(tarvik_drawBlueColor()));
    EXPECT_EQ(at(48 - 15, 16 + 24), kWhite);  // where it would be, unturned
    // Half the green over white.
    Pixel green = at(116, 40);
    EXPECT_NEAR(green.red, (46 + 255) / 2.0, 1.5);
    EXPECT_NEAR(green.green, (230 + 255) / 2.0, 1.5);
    EXPECT_EQ(at(156, 40 - 16 + 4 + 24), kWhite);  // the hidden view's place
    // Drawing stays within its own view; subviews stay within the clipping bar.
    EXPECT_EQ(at(8 + 150 + 10, 16 + 8 + 10), opaque(tarvik_drawRedColor()));
    EXPECT_EQ(at(8 + 150 - 2, 16 + 8 + 10), kWhite);
    EXPECT_EQ(at(8 + 190, 16 + 44), opaque(tarvik_drawBlueColor()));
    EXPECT_EQ(at(8 + 195.8, 16 + 47.8), opaque(dark));  // outside the bar's rounded corner
    EXPECT_EQ(at(8 + 190, 16 + 50), opaque(dark));      // below the bar
}

}  // namespace
}  // namespace tarvik
