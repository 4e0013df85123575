#include "Helpers/UIColor+Tarvik.h"
#include "Helpers/UIImage+Tarvik.h"
#include "Kit/Render/SoftwareRenderer.h"
#include "Kit/UIApplication.h"
#include "Kit/UIButton.h"
#include "Kit/UIFont.h"
#include "Kit/UIImageView.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKButton.h"

#include <gtest/gtest.h>

namespace tarvik {
namespace {

using Pixel = Image::Pixel;
using testing::TestRuntime;

const Color kWhite = Color::colorWithRed(1, 1, 1, 1);

Pixel opaque(const Color& color) {
    auto byte = [](double component) { return static_cast<std::uint8_t>(component * 255 + 0.5); };
    return {255, byte(color.red()), byte(color.green()), byte(color.blue())};
}

// `view` drawn at scale 2 over white, and its pixel at a point.
class Picture {
  public:
    explicit Picture(UIView& view) {
        view.layoutIfNeeded();
        image_ = SoftwareRenderer::render(view, 2);
    }
    Pixel at(double x, double y) const {
        return image_->pixelAt(static_cast<int>(x * 2), static_cast<int>(y * 2));
    }

  private:
    std::optional<Image> image_;
};

UIImage disc(const Color& color, double diameter) {
    return *tarvik_circleImageWithColor(color, diameter);
}

TEST(KitImageView, TemplatesTakeTheInheritedTintAndContentModesPlaceTheImage) {
    TestRuntime test;
    auto screen = std::make_shared<UIView>(Rect{{0, 0}, {100, 40}});
    screen->setBackgroundColor(kWhite);
    screen->setTintColor(tarvik_drawGreenColor());
    UIImage red = disc(tarvik_drawRedColor(), 20);

    auto centred = std::make_shared<UIImageView>(Rect{{0, 0}, {40, 40}});
    centred->setImage(red.imageWithRenderingMode(UIImageRenderingModeAlwaysTemplate));
    centred->setContentMode(UIViewContentModeCenter);
    auto filled = std::make_shared<UIImageView>(Rect{{40, 0}, {40, 40}});
    filled->setImage(red);
    auto fitted = std::make_shared<UIImageView>(Rect{{80, 0}, {20, 40}});
    fitted->setImage(disc(tarvik_drawRedColor(), 40));
    fitted->setContentMode(UIViewContentModeScaleAspectFit);
    for (const auto& view : {centred, filled, fitted}) {
        screen->addSubview(view);
    }
    EXPECT_FALSE(centred->isUserInteractionEnabled());

    Picture picture(*screen);
    EXPECT_EQ(picture.at(20, 20), opaque(tarvik_drawGreenColor()));  // the tint, not red
    EXPECT_EQ(picture.at(20, 8), opaque(kWhite));                    // unscaled: 20 across
    EXPECT_EQ(picture.at(43, 20), opaque(tarvik_drawRedColor()));    // stretched to 40
    EXPECT_EQ(picture.at(90, 20), opaque(tarvik_drawRedColor()));    // shrunk to 20 x 20...
    EXPECT_EQ(picture.at(90, 6), opaque(kWhite));                    // ...in the middle

    // The view's own tint wins over the inherited one.
    centred->setTintColor(tarvik_drawBlueColor());
    EXPECT_EQ(Picture(*screen).at(20, 20), opaque(tarvik_drawBlueColor()));
}

class TintWatcher : public UIView {
  public:
    int changes = 0;
    void tintColorDidChange() override { ++changes; }
};

TEST(KitImageView, TintChangesReachTheSubviewsThatInheritIt) {
    auto root = std::make_shared<UIView>();
    auto inheriting = std::make_shared<TintWatcher>();
    auto ownTint = std::make_shared<TintWatcher>();
    auto belowOwn = std::make_shared<TintWatcher>();
    root->addSubview(inheriting);
    root->addSubview(ownTint);
    ownTint->addSubview(belowOwn);
    ownTint->setTintColor(tarvik_drawRedColor());
    EXPECT_EQ(belowOwn->changes, 1);
    EXPECT_EQ(belowOwn->tintColor(), tarvik_drawRedColor());

    root->setTintColor(tarvik_drawGreenColor());
    EXPECT_EQ(inheriting->changes, 1);
    EXPECT_EQ(ownTint->changes, 1);  // keeps its own
    EXPECT_EQ(belowOwn->changes, 1);
    EXPECT_EQ(inheriting->tintColor(), tarvik_drawGreenColor());
    EXPECT_EQ(std::make_shared<UIView>()->tintColor(), Color::colorWithRed(0, 122 / 255.0, 1, 1));
}

TEST(KitButton, ContentFallsBackToTheNormalStateAndFollowsTheType) {
    TestRuntime test;
    UIImage red = disc(tarvik_drawRedColor(), 24);
    UIImage blue = disc(tarvik_drawBlueColor(), 24);
    auto button = TVKButton::buttonWithType(UIButtonTypeCustom);
    EXPECT_TRUE(button->isKindOfClass("UIButton"));
    EXPECT_TRUE(button->isKindOfClass("UIControl"));
    EXPECT_EQ(button->className(), "TVKButton");

    button->setImage(red, UIControlStateNormal);
    button->setImage(blue, UIControlStateSelected);
    button->setTitle("Send", UIControlStateNormal);
    auto surfaceOf = [](const std::optional<UIImage>& image) {
        return image ? image->bitmap().surface() : nullptr;
    };
    EXPECT_EQ(surfaceOf(button->imageForState(UIControlStateHighlighted)), red.bitmap().surface());
    EXPECT_EQ(surfaceOf(button->imageForState(UIControlStateSelected)), blue.bitmap().surface());
    // A combination without its own image shows the normal one, not the selected one.
    EXPECT_EQ(surfaceOf(button->imageForState(UIControlStateSelected | UIControlStateHighlighted)),
              red.bitmap().surface());
    EXPECT_EQ(button->titleForState(UIControlStateDisabled), "Send");
    EXPECT_EQ(button->currentTitleColor(), kWhite);
    button->setSelected(true);
    EXPECT_EQ(surfaceOf(button->currentImage()), blue.bitmap().surface());
    EXPECT_EQ(surfaceOf(button->imageView()->image()), blue.bitmap().surface());
    button->setImage(std::nullopt, UIControlStateSelected);
    EXPECT_EQ(surfaceOf(button->currentImage()), red.bitmap().surface());

    // Centred, image drawn in its own colours by a custom button, as a template by a system
    // one unless it is always original; a background image stretched under it.
    auto row = std::make_shared<UIView>(Rect{{0, 0}, {120, 32}});
    row->setBackgroundColor(kWhite);
    row->setTintColor(tarvik_drawGreenColor());
    auto custom = UIButton::buttonWithType(UIButtonTypeCustom);
    auto system = UIButton::buttonWithType(UIButtonTypeSystem);
    auto original = UIButton::buttonWithType(UIButtonTypeSystem);
    auto backed = UIButton::buttonWithType(UIButtonTypeCustom);
    custom->setImage(red, UIControlStateNormal);
    system->setImage(red, UIControlStateNormal);
    original->setImage(red.imageWithRenderingMode(UIImageRenderingModeAlwaysOriginal),
                       UIControlStateNormal);
    backed->setBackgroundImage(*tarvik_imageWithColor(tarvik_drawBlueColor()),
                               UIControlStateNormal);
    double x = 0;
    for (const auto& each : {custom, system, original, backed}) {
        each->setFrame({{x, 0}, {30, 32}});
        row->addSubview(each);
        x += 30;
    }
    EXPECT_EQ(system->titleColorForState(UIControlStateNormal), tarvik_drawGreenColor());
    Picture picture(*row);
    EXPECT_EQ(custom->imageView()->frame(), (Rect{{3, 4}, {24, 24}}));
    EXPECT_EQ(picture.at(15, 16), opaque(tarvik_drawRedColor()));
    EXPECT_EQ(picture.at(15, 2), opaque(kWhite));
    EXPECT_EQ(picture.at(45, 16), opaque(tarvik_drawGreenColor()));
    EXPECT_EQ(picture.at(75, 16), opaque(tarvik_drawRedColor()));
    EXPECT_EQ(picture.at(90.5, 0.5), opaque(tarvik_drawBlueColor()));  // to the very corner

    // An image larger than the button is shrunk to fit, keeping its proportions.
    custom->setFrame({{0, 0}, {30, 12}});
    custom->layoutIfNeeded();
    EXPECT_EQ(custom->imageView()->frame(), (Rect{{9, 0}, {12, 12}}));
    EXPECT_EQ(custom->intrinsicContentSize(), (Size{24, 24}));
}

TEST(KitButton, HighlightedCustomButtonsDarkenImagesWithoutOnesOfTheirOwn) {
    TestRuntime test;
    UIImage red = disc(tarvik_drawRedColor(), 24);
    auto button = UIButton::buttonWithType(UIButtonTypeCustom);
    button->setFrame({{0, 0}, {24, 24}});
    button->setImage(red, UIControlStateNormal);
    button->setHighlighted(true);
    Pixel pressed = Picture(*button).at(12, 12);
    Pixel normal = opaque(tarvik_drawRedColor());
    EXPECT_EQ(pressed.alpha, 255);
    EXPECT_LT(pressed.red, normal.red * 0.8);
    EXPECT_GT(pressed.red, normal.red * 0.5);
    EXPECT_LT(pressed.blue, normal.blue);

    button->setAdjustsImageWhenHighlighted(false);
    EXPECT_EQ(Picture(*button).at(12, 12), normal);
    button->setAdjustsImageWhenHighlighted(true);
    button->setImage(disc(tarvik_drawGreenColor(), 24), UIControlStateHighlighted);
    EXPECT_EQ(Picture(*button).at(12, 12), opaque(tarvik_drawGreenColor()));
    button->setHighlighted(false);
    EXPECT_EQ(Picture(*button).at(12, 12), normal);

    // A template takes the tint it has when drawn, darkened, even when the button was
    // highlighted before it joined the view that gives it that tint.
    auto tinted = UIButton::buttonWithType(UIButtonTypeCustom);
    tinted->setFrame({{0, 0}, {24, 24}});
    tinted->setImage(red.imageWithRenderingMode(UIImageRenderingModeAlwaysTemplate),
                     UIControlStateNormal);
    tinted->setHighlighted(true);
    auto parent = std::make_shared<UIView>(Rect{{0, 0}, {24, 24}});
    parent->setTintColor(tarvik_drawGreenColor());
    parent->addSubview(tinted);
    Pixel green = opaque(tarvik_drawGreenColor());
    Pixel darkGreen = Picture(*parent).at(12, 12);
    EXPECT_LT(darkGreen.green, green.green * 0.8);
    EXPECT_GT(darkGreen.green, green.green * 0.5);
    EXPECT_LE(darkGreen.red, green.red);
}

TEST(KitButton, TitlesFollowTheImageCentredInTheStatesColourAndTheInheritedTint) {
    TestRuntime test;
    auto button = UIButton::buttonWithType(UIButtonTypeCustom);
    button->setFrame({{0, 0}, {200, 44}});
    button->setImage(disc(tarvik_drawRedColor(), 24), UIControlStateNormal);
    button->setTitle("Back", UIControlStateNormal);
    button->setTitleColor(tarvik_darkTextColor(), UIControlStateNormal);
    button->setTitleColor(tarvik_drawRedColor(), UIControlStateHighlighted);
    std::shared_ptr<UILabel> label = button->titleLabel();
    EXPECT_EQ(label->font().pointSize(), 15);
    EXPECT_EQ(label->text(), "Back");
    EXPECT_EQ(label->textColor(), tarvik_darkTextColor());
    button->layoutIfNeeded();
    Rect image = button->imageView()->frame();
    Rect title = label->frame();
    Size natural = label->sizeThatFits({0, 0});
    EXPECT_GT(natural.width, 0);
    EXPECT_EQ(title.size, natural);
    EXPECT_EQ(title.origin.x, image.origin.x + 24);
    EXPECT_DOUBLE_EQ(image.origin.x, 200 - (title.origin.x + title.size.width));  // centred
    EXPECT_DOUBLE_EQ(title.origin.y + title.size.height / 2, 22);
    EXPECT_EQ(button->intrinsicContentSize(),
              (Size{24 + natural.width, std::max(24.0, natural.height)}));
    button->setHighlighted(true);
    EXPECT_EQ(label->textColor(), tarvik_drawRedColor());

    label->setFont(UIFont::systemFontOfSize(30));
    button->setNeedsLayout();
    button->layoutIfNeeded();
    EXPECT_GT(label->frame().size.width, natural.width);
    button->setFrame({{0, 0}, {40, 44}});  // 16 points left beside the image
    button->layoutIfNeeded();
    EXPECT_LE(label->frame().size.width, 16);

    // A system button's title takes the tint of wherever it is put.
    auto system = UIButton::buttonWithType(UIButtonTypeSystem);
    system->setFrame({{0, 0}, {100, 44}});
    system->setTitle("Done", UIControlStateNormal);
    auto parent = std::make_shared<UIView>(Rect{{0, 0}, {100, 44}});
    parent->setBackgroundColor(kWhite);
    parent->setTintColor(tarvik_drawGreenColor());
    parent->addSubview(system);
    EXPECT_EQ(system->titleLabel()->textColor(), tarvik_drawGreenColor());
    Picture picture(*parent);
    int greenish = 0;
    for (double y = 0; y < 44; y += 0.5) {
        for (double x = 0; x < 100; x += 0.5) {
            Pixel pixel = picture.at(x, y);
            greenish += pixel.green > 200 && pixel.red < 150 ? 1 : 0;
        }
    }
    EXPECT_GT(greenish, 20);
}

// Receives the actions of the tests' controls.
class Receiver : public NSObject {
    TVK_KIT_CLASS(Receiver, NSObject)

  public:
    std::vector<std::shared_ptr<UIButton>> taps;
    int touchDowns = 0;
    int touchUpsOutside = 0;
    void didTapButton(const std::shared_ptr<UIButton>& button) { taps.push_back(button); }
    void didTouchDown() { ++touchDowns; }
    void didTouchUpOutside() { ++touchUpsOutside; }
};

// A view that takes the keyboard, inside one that handles an action.
class Field : public UIView {
  public:
    bool canBecomeFirstResponder() const override { return true; }
};

class Form : public UIView {
    TVK_KIT_CLASS(Form, UIView)

  public:
    int submits = 0;
    void didTapSubmitButton() { ++submits; }
};

class ButtonTracking : public ::testing::Test {
  protected:
    TestRuntime test;
    std::shared_ptr<UIWindow> window = std::make_shared<UIWindow>(Rect{{0, 0}, {400, 400}});
    std::shared_ptr<TVKButton> button = TVKButton::buttonWithType(UIButtonTypeCustom);
    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();

    ButtonTracking() {
        button->setFrame({{100, 100}, {40, 40}});
        button->setImage(disc(tarvik_drawRedColor(), 24), UIControlStateNormal);
        window->addSubview(button);
        window->makeKeyAndVisible();
        button->addTarget(receiver, Selector::method("didTapButton:", &Receiver::didTapButton),
                          UIControlEventTouchUpInside);
        button->addTarget(receiver, Selector::method("didTouchDown", &Receiver::didTouchDown),
                          UIControlEventTouchDown);
        button->addTarget(receiver,
                          Selector::method("didTouchUpOutside", &Receiver::didTouchUpOutside),
                          UIControlEventTouchUpOutside);
    }

    void touch(UITouchPhase phase, Point point) {
        UIApplication::sharedApplication().handleTouch(window, 1, phase, point);
    }
};

TEST_F(ButtonTracking, TouchUpInsideTheGenerousAreaTapsAndOutsideDoesNot) {
    touch(UITouchPhase::Began, {120, 120});  // on the image, which takes no touches itself
    EXPECT_TRUE(button->isHighlighted());
    EXPECT_TRUE(button->isTracking());
    EXPECT_EQ(receiver->touchDowns, 1);
    touch(UITouchPhase::Moved, {120, 215});  // 75 points below the button
    EXPECT_FALSE(button->isHighlighted());
    EXPECT_FALSE(button->isTouchInside());
    touch(UITouchPhase::Moved, {120, 205});  // 65 below: still counts as on it
    EXPECT_TRUE(button->isHighlighted());
    touch(UITouchPhase::Ended, {120, 205});
    EXPECT_FALSE(button->isHighlighted());
    EXPECT_FALSE(button->isTracking());
    ASSERT_EQ(receiver->taps.size(), 1u);
    EXPECT_EQ(receiver->taps[0], button);  // the sender, as its own class

    touch(UITouchPhase::Began, {101, 139});
    touch(UITouchPhase::Ended, {29, 139});  // 71 to the left
    EXPECT_EQ(receiver->taps.size(), 1u);
    EXPECT_EQ(receiver->touchUpsOutside, 1);

    button->setEnabled(false);
    touch(UITouchPhase::Began, {120, 120});
    touch(UITouchPhase::Ended, {120, 120});
    EXPECT_EQ(receiver->touchDowns, 2);
    EXPECT_EQ(receiver->taps.size(), 1u);
    EXPECT_FALSE(button->isHighlighted());
}

TEST_F(ButtonTracking, ActionsAreDeliveredOnlyToTargetsOfTheirClassAndOnlyOnce) {
    Selector tap = Selector::method("didTapButton:", &Receiver::didTapButton);
    EXPECT_EQ(tap.name(), "didTapButton:");
    UIApplication& application = UIApplication::sharedApplication();
    EXPECT_TRUE(application.sendAction(tap, receiver, button, nullptr));
    EXPECT_FALSE(application.sendAction(tap, std::make_shared<NSObject>(), button, nullptr));
    EXPECT_FALSE(application.sendAction(tap, nullptr, button, nullptr));
    ASSERT_EQ(receiver->taps.size(), 1u);

    // Adding the same action again adds no second call; a target that is gone gets nothing.
    button->addTarget(receiver, tap, UIControlEventTouchUpInside | UIControlEventValueChanged);
    auto shortLived = std::make_shared<Receiver>();
    button->addTarget(shortLived, tap, UIControlEventTouchUpInside);
    shortLived.reset();
    button->sendActionsForControlEvents(UIControlEventTouchUpInside);
    button->sendActionsForControlEvents(UIControlEventValueChanged);
    EXPECT_EQ(receiver->taps.size(), 3u);

    // Without a target the action goes up the responder chain from the first responder to the
    // first responder of its class.
    auto form = std::make_shared<Form>();
    auto field = std::make_shared<Field>();
    form->addSubview(field);
    Selector submit = Selector::method("didTapSubmitButton", &Form::didTapSubmitButton);
    button->addTarget(nullptr, submit, UIControlEventTouchUpInside);
    button->sendActionsForControlEvents(UIControlEventTouchUpInside);
    EXPECT_EQ(form->submits, 0);  // no first responder yet
    ASSERT_TRUE(field->becomeFirstResponder());
    button->sendActionsForControlEvents(UIControlEventTouchUpInside);
    EXPECT_EQ(form->submits, 1);
    EXPECT_EQ(receiver->taps.size(), 5u);
}

}  // namespace
}  // namespace tarvik
