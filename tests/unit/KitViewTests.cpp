#include "Kit/UIView.h"

#include <gtest/gtest.h>

#include <numbers>

namespace tarvik {
namespace {

std::shared_ptr<UIView> makeView(Rect frame) {
    return std::make_shared<UIView>(frame);
}

void expectNear(Point seen, Point expected) {
    EXPECT_NEAR(seen.x, expected.x, 1e-9);
    EXPECT_NEAR(seen.y, expected.y, 1e-9);
}

// A class that declares object-valued variables, as the reporter's controllers do.
class TestPanel : public UIView {
    TVK_KIT_CLASS(TestPanel, UIView)

  public:
    std::shared_ptr<UIView> firstButton = makeView({});
    std::shared_ptr<UIView> secondButton;

    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override {
        if (&kitClass != &staticClass()) {
            return UIView::instanceVariablesDeclaredBy(kitClass);
        }
        return {{"firstButton", asObject(firstButton)}, {"secondButton", asObject(secondButton)}};
    }

    int layouts = 0;
    void layoutSubviews() override { ++layouts; }
};

TEST(KitObjectModel, ClassNamesKindOfChainAndDeclaredVariables) {
    TestPanel panel;
    EXPECT_EQ(panel.className(), "TestPanel");
    for (const char* name : {"TestPanel", "UIView", "UIResponder", "NSObject"}) {
        EXPECT_TRUE(panel.isKindOfClass(name)) << name;
    }
    EXPECT_FALSE(panel.isKindOfClass("UIButton"));
    EXPECT_TRUE(panel.isKindOfClass(UIView::staticClass()));
    EXPECT_TRUE(panel.isMemberOfClass("TestPanel"));
    EXPECT_FALSE(panel.isMemberOfClass("UIView"));

    std::vector<InstanceVariable> own = panel.instanceVariablesDeclaredBy(panel.objectClass());
    ASSERT_EQ(own.size(), 2u);
    EXPECT_EQ(own[0].name, "firstButton");
    EXPECT_EQ(own[0].value.get(), panel.firstButton.get());  // the object itself
    EXPECT_EQ(own[1].value, nullptr);
    EXPECT_TRUE(panel.instanceVariablesDeclaredBy(UIView::staticClass()).empty());
}

// The editor's tool bars: the pen bar keeps its left and bottom margins, the clear bar its
// right and bottom ones, when the screen turns from 375 x 667 to 667 x 375.
TEST(KitViewGeometry, AutoresizingKeepsFixedMarginsAndSharesTheChangeAmongFlexibleParts) {
    auto screen = makeView({{0, 0}, {375, 667}});
    auto pens = makeView({{8, 611}, {196, 48}});
    pens->setAutoresizingMask(UIViewAutoresizingFlexibleRightMargin |
                              UIViewAutoresizingFlexibleTopMargin);
    auto clear = makeView({{319, 611}, {48, 48}});
    clear->setAutoresizingMask(UIViewAutoresizingFlexibleLeftMargin |
                               UIViewAutoresizingFlexibleTopMargin);
    auto stretching = makeView({{10, 100}, {355, 100}});  // width and both margins flexible
    stretching->setAutoresizingMask(UIViewAutoresizingFlexibleLeftMargin |
                                    UIViewAutoresizingFlexibleWidth |
                                    UIViewAutoresizingFlexibleRightMargin);
    auto fixed = makeView({{20, 20}, {30, 30}});
    for (const auto& view : {pens, clear, stretching, fixed}) {
        screen->addSubview(view);
    }
    screen->setFrame({{0, 0}, {667, 375}});
    EXPECT_EQ(pens->frame(), (Rect{{8, 319}, {196, 48}}));
    EXPECT_EQ(clear->frame(), (Rect{{611, 319}, {48, 48}}));
    // 292 more points, shared 10 : 355 : 10 by the parts' lengths.
    Rect stretched = stretching->frame();
    EXPECT_NEAR(stretched.origin.x, 10 + 292 * 10 / 375.0, 1e-9);
    EXPECT_NEAR(stretched.size.width, 355 + 292 * 355 / 375.0, 1e-9);
    EXPECT_EQ(stretched.origin.y, 100);
    EXPECT_EQ(fixed->frame(), (Rect{{20, 20}, {30, 30}}));

    screen->setAutoresizesSubviews(false);
    screen->setFrame({{0, 0}, {375, 667}});
    EXPECT_EQ(pens->frame(), (Rect{{8, 319}, {196, 48}}));
}

TEST(KitViewGeometry, RotationTurnsTheFrameAndConversionsAboutTheCentre) {
    auto root = makeView({{0, 0}, {400, 400}});
    auto turned = makeView({{50, 75}, {100, 50}});  // centred at (100, 100)
    root->addSubview(turned);
    turned->setTransform(AffineTransform::rotation(std::numbers::pi / 2));
    Rect frame = turned->frame();
    expectNear(frame.origin, {75, 50});
    EXPECT_NEAR(frame.size.width, 50, 1e-9);
    EXPECT_NEAR(frame.size.height, 100, 1e-9);
    // Its top left corner is now at the top right of the turned rectangle.
    expectNear(turned->convertPointToView({0, 0}, root.get()), {125, 50});

    // A window turned for landscape (either way) and given the screen's frame has the
    // screen's sides swapped, exactly, and reports the screen's frame, exactly.
    for (double degrees : {90.0, 270.0}) {
        UIView window({{0, 0}, {375, 667}});
        window.setTransform(AffineTransform::rotation(degrees * 0.017453292519943295));
        window.setFrame(window.bounds());
        EXPECT_EQ(window.bounds().size, (Size{667, 375}));
        EXPECT_EQ(window.center(), (Point{187.5, 333.5}));
        EXPECT_EQ(window.frame(), (Rect{{0, 0}, {375, 667}})) << degrees;
    }

    // A bounds origin shifts the content; conversions between siblings go both ways.
    auto scrolled = makeView({{200, 200}, {100, 100}});
    root->addSubview(scrolled);
    scrolled->setBounds({{0, 40}, {100, 100}});
    Point inTurned{10, 20};
    Point inScrolled = turned->convertPointToView(inTurned, scrolled.get());
    expectNear(scrolled->convertPointToView(inScrolled, nullptr),
               turned->convertPointToView(inTurned, nullptr));
    expectNear(turned->convertPointFromView(inScrolled, scrolled.get()), inTurned);
}

// The overlays' veil: a colour of the palette at another alpha.
TEST(KitColor, AColourWithAnotherAlphaKeepsItsRedGreenAndBlue) {
    Color dark = Color::colorWithRed(57 / 255.0, 63 / 255.0, 71 / 255.0, 1);
    EXPECT_EQ(dark.colorWithAlphaComponent(0.3),
              Color::colorWithRed(57 / 255.0, 63 / 255.0, 71 / 255.0, 0.3));
    EXPECT_EQ(dark.alpha(), 1);
}

// As the phone's rectangle test: a shared area counts, a shared edge does not.
TEST(KitViewGeometry, RectanglesIntersectWhenTheyShareArea) {
    const Rect thumbnail{{16, 301.5}, {60, 96}};
    EXPECT_TRUE(rectIntersectsRect({{16, 128}, {359, 174}}, thumbnail));
    EXPECT_TRUE(rectIntersectsRect(thumbnail, {{16, 128}, {359, 174}}));
    EXPECT_FALSE(rectIntersectsRect({{16, 128}, {359, 173.5}}, thumbnail));     // edge to edge
    EXPECT_FALSE(rectIntersectsRect({{76, 300}, {10, 10}}, thumbnail));         // beside it
    EXPECT_TRUE(rectIntersectsRect({{0, 0}, {100, 100}}, {{10, 10}, {5, 5}}));  // inside
}

TEST(KitViewHitTesting, TheTopmostVisibleInteractiveViewUnderThePointIsHit) {
    auto root = makeView({{0, 0}, {300, 300}});
    auto below = makeView({{0, 0}, {200, 200}});
    auto above = makeView({{100, 100}, {200, 200}});
    auto inner = makeView({{10, 10}, {20, 20}});
    root->addSubview(below);
    root->addSubview(above);
    above->addSubview(inner);
    EXPECT_EQ(root->hitTest({150, 150}), above);
    EXPECT_EQ(root->hitTest({50, 50}), below);
    EXPECT_EQ(root->hitTest({115, 115}), inner);
    EXPECT_EQ(root->hitTest({300, 300}), nullptr);  // bounds exclude their far edges

    above->setUserInteractionEnabled(false);
    EXPECT_EQ(root->hitTest({150, 150}), below);
    above->setUserInteractionEnabled(true);
    above->setAlpha(0.005);
    EXPECT_EQ(root->hitTest({115, 115}), below);
    above->setAlpha(1);
    above->setHidden(true);
    EXPECT_EQ(root->hitTest({250, 250}), root);
}

TEST(KitViewUpdates, DisplayRequestsAccumulateAndLayoutRunsOncePerRequest) {
    auto panel = std::make_shared<TestPanel>();
    panel->setFrame({{0, 0}, {100, 100}});
    panel->takeNeedsDisplayRect();
    panel->setNeedsDisplayInRect({{10, 10}, {5, 5}});
    panel->setNeedsDisplayInRect({{50, 0}, {10, 20}});
    EXPECT_EQ(panel->takeNeedsDisplayRect(), (Rect{{10, 0}, {50, 20}}));
    EXPECT_EQ(panel->takeNeedsDisplayRect(), std::nullopt);

    panel->layoutIfNeeded();
    panel->layoutIfNeeded();
    EXPECT_EQ(panel->layouts, 1);
    panel->setCenter({70, 70});  // moving does not lay out again; resizing does
    panel->layoutIfNeeded();
    panel->setBounds({{0, 0}, {120, 100}});
    panel->layoutIfNeeded();
    EXPECT_EQ(panel->layouts, 2);

    auto child = makeView({{0, 0}, {10, 10}});
    panel->addSubview(child);
    auto other = makeView({});
    other->addSubview(child);  // a view has one superview
    EXPECT_TRUE(panel->subviews().empty());
    EXPECT_EQ(child->superview(), other);
    EXPECT_EQ(child->nextResponder(), other);
    EXPECT_TRUE(child->isDescendantOfView(*other));
    EXPECT_FALSE(child->isDescendantOfView(*panel));
}

}  // namespace
}  // namespace tarvik
