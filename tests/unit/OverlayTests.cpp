#include <tarvik/Tarvik.h>

#include "Helpers/NSBundle+Tarvik.h"
#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/UIColor+Tarvik.h"
#include "Kit/AnimationTiming.h"
#include "Kit/Render/SoftwareRenderer.h"
#include "Kit/UIApplication.h"
#include "Platform/PropertyList.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKConfirmationAlertView.h"
#include "Views/TVKInstructionAlertView.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace tarvik {
namespace {

using Instruction = TVKInstructionAlertView;
using Confirmation = TVKConfirmationAlertView;
using Settings = TVKSettingsManager;
using testing::TestRuntime;
namespace fs = std::filesystem;

const Date kTestStart{std::chrono::seconds(1767323045)};  // the Testing clock's start
constexpr double kRadiansPerDegree = 0.017453292519943295;

Date daysAfterStart(double days) {
    return kTestStart +
           std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(days * 86400));
}

std::vector<std::shared_ptr<UIWindow>> windowsOnScreen() {
    return UIApplication::sharedApplication().windows();
}

bool sameImage(const std::optional<UIImage>& shown, const std::string& name) {
    std::optional<UIImage> expected = UIImage::imageNamed(name, tarvik_frameworkBundle());
    return shown && expected &&
           shown->bitmap().pngRepresentation() == expected->bitmap().pngRepresentation();
}

// One installation of the host app: its settings file is carried from launch to launch, each
// launch a fresh process (runtime) at its own date, which offers the card as the facade does.
class Installation {
  public:
    // Launches on `day` (days after the Testing clock's start): whether the card came up.
    bool launchOnDay(double day) {
        TestRuntime test;
        test.platform().virtualClock().setNow(daysAfterStart(day));
        std::string path = Settings::tarvikSettingsPath();
        if (settings_) {
            fs::create_directories(TVKDirectoryLayout::settingsFolderPath());
            testsupport::writeFile(path, *settings_);
        }
        Instruction::show();
        test.advance(3.0);
        bool shown = !windowsOnScreen().empty();
        test.advance(10);
        settings_ = testsupport::readFile(path);
        return shown;
    }
    void writeSettings(const Dictionary& settings) {
        Data bytes = *plist::toBinary(settings);
        settings_ = std::string(bytes.begin(), bytes.end());
    }
    Dictionary settings() const {
        std::optional<Value> value = plist::parse(settings_.value_or(""));
        return value && value->isDictionary() ? *value->asDictionary() : Dictionary{};
    }

  private:
    std::optional<std::string> settings_;
};

// A new installation sees the card at most three times in the 30 days after its settings file
// was made; after that once more each time more than 30 whole days passed since the last.
TEST(InstructionShowRule, ThreeTimesInTheFirstThirtyDaysThenOnceAfterEachGapOfMoreThanThirty) {
    Installation app;
    EXPECT_TRUE(app.launchOnDay(0));
    EXPECT_TRUE(app.launchOnDay(0.5));
    EXPECT_TRUE(app.launchOnDay(2));
    EXPECT_FALSE(app.launchOnDay(3));
    EXPECT_FALSE(app.launchOnDay(29));
    EXPECT_EQ(app.settings()["presentedInstructionCount"], Value(3));
    EXPECT_EQ(app.settings()["lastPresentedInstructionDate"], Value(daysAfterStart(2)));
    EXPECT_EQ(app.settings()["firstPresentedInstructionDate"], Value(kTestStart));
    EXPECT_FALSE(app.launchOnDay(32.9));  // 30 whole days since the last: not more than 30
    EXPECT_TRUE(app.launchOnDay(33));
    EXPECT_EQ(app.settings()["presentedInstructionCount"], Value(1));
    EXPECT_FALSE(app.launchOnDay(40));
    EXPECT_TRUE(app.launchOnDay(71));

    // Day 30 after the first is still within the first 30 days; day 31 is not.
    Installation other;
    EXPECT_TRUE(other.launchOnDay(0));
    EXPECT_TRUE(other.launchOnDay(30.9));
    EXPECT_FALSE(other.launchOnDay(31));
    EXPECT_EQ(other.settings()["presentedInstructionCount"], Value(2));
}

TEST(InstructionShowRule, LastShownThirtyOneDaysAgoAndFirstAHundredShowsOnceAndStoresOne) {
    Installation app;
    app.writeSettings({{"eventFeatureEnabled", true},
                       {"presentedInstructionCount", 3},
                       {"lastPresentedInstructionDate", daysAfterStart(-31)},
                       {"firstPresentedInstructionDate", daysAfterStart(-100)}});
    EXPECT_TRUE(app.launchOnDay(0));
    EXPECT_EQ(app.settings()["presentedInstructionCount"], Value(1));
    EXPECT_EQ(app.settings()["lastPresentedInstructionDate"], Value(kTestStart));
    EXPECT_FALSE(app.launchOnDay(0.1));

    // Whole days are truncated: 30 days and 23 hours is 30 days.
    Installation recent;
    recent.writeSettings({{"presentedInstructionCount", 3},
                          {"lastPresentedInstructionDate", daysAfterStart(-30.96)},
                          {"firstPresentedInstructionDate", daysAfterStart(-100)}});
    EXPECT_FALSE(recent.launchOnDay(0));

    // Missing dates count as long ago.
    Installation undated;
    undated.writeSettings({{"presentedInstructionCount", 3}});
    EXPECT_TRUE(undated.launchOnDay(0));
    EXPECT_EQ(undated.settings()["presentedInstructionCount"], Value(1));
    EXPECT_FALSE(undated.launchOnDay(0.1));
}

// The card comes 3 s after `show`, springs from below the screen to the middle, shakes its
// illustration, and fades out with its window 3 s after the spring began.
TEST(InstructionOverlay, SpringsUpAfterThreeSecondsShakesAndLeavesThreeSecondsLater) {
    TestRuntime test;
    Instruction::show();
    test.advance(2.5);
    EXPECT_TRUE(windowsOnScreen().empty());
    test.advance(0.5);
    auto alert = Instruction::sharedInstance();
    std::shared_ptr<UIWindow> window = alert->window();
    ASSERT_EQ(windowsOnScreen(), std::vector{window});
    EXPECT_FALSE(window->isKeyWindow());
    EXPECT_EQ(window->frame(), (Rect{{0, 0}, {375, 667}}));
    EXPECT_TRUE(window->transform().isIdentity());
    EXPECT_EQ(window->windowLevel(), UIWindowLevelStatusBar);
    EXPECT_TRUE(window->clipsToBounds());
    EXPECT_EQ(window->backgroundColor(), tarvik_darkTextColor().colorWithAlphaComponent(0.3));

    std::shared_ptr<UIView> card = alert->containerView();
    EXPECT_EQ(card->superview(), window);
    EXPECT_EQ(card->frame(), (Rect{{68, 190}, {240, 287}}));  // where it is headed
    EXPECT_EQ(card->backgroundColor(), Color::colorWithRed(1, 1, 1, 1));
    EXPECT_EQ(card->layer().cornerRadius, 7);
    EXPECT_TRUE(card->clipsToBounds());
    EXPECT_EQ(alert->imageView()->frame(), (Rect{{60, 48}, {120, 70}}));
    EXPECT_EQ(alert->messageLabel()->frame(), (Rect{{24, 142}, {192, 72}}));
    EXPECT_EQ(alert->separatorView()->frame(), (Rect{{0, 238}, {240, 1}}));
    EXPECT_EQ(alert->separatorView()->backgroundColor(), tarvik_drawContainerBorderColor());
    EXPECT_EQ(alert->dismissButton()->frame(), (Rect{{0, 239}, {240, 48}}));
    EXPECT_EQ(alert->dismissButton()->currentTitle(), "OK");
    EXPECT_EQ(alert->dismissButton()->currentTitleColor(), tarvik_drawBlueColor());
    EXPECT_EQ(alert->dismissButton()->titleLabel()->font(), UIFont::systemFontOfSize(16));
    EXPECT_TRUE(alert->dismissButton()->isKindOfClass("TVKButton"));

    // The spring: 0.25 s, damping 0.6, velocity 3, from y = ceil(667 + 287) to (667 - 287) / 2.
    const double began = test.runtime().clock().mediaTime();
    const auto advanceTo = [&](double elapsed) {
        test.advance(began + elapsed - test.runtime().clock().mediaTime());
    };
    EXPECT_EQ(card->presentationValues().center, (Point{188, 954 + 143.5}));
    advanceTo(0.1);
    double moved = SpringTimingCurve(0.6, 3.0, 0.25).valueAt(0.1);
    EXPECT_NEAR(card->presentationValues().center.y, 1097.5 + (333.5 - 1097.5) * moved, 1e-6);
    EXPECT_EQ(card->presentationValues().center.x, 188);
    EXPECT_EQ(alert->imageView()->layerAnimations().animationForKey("Shake"), nullptr);

    // Then the illustration shakes: 12 points sideways in 0.075 s, back, five times.
    advanceTo(0.3);
    EXPECT_EQ(card->presentationValues().center, (Point{188, 333.5}));
    auto shake = alert->imageView()->layerAnimations().animationForKey("Shake");
    ASSERT_NE(shake, nullptr);
    EXPECT_EQ(shake->keyPath(), "position.x");
    EXPECT_EQ(shake->byValue(), 12);
    EXPECT_EQ(shake->duration(), 0.075);
    EXPECT_TRUE(shake->autoreverses());
    EXPECT_EQ(shake->repeatCount(), 5);
    EXPECT_NEAR(alert->imageView()->presentationValues().center.x, 120 + 12 * 0.05 / 0.075, 1e-6);
    advanceTo(1.1);
    EXPECT_EQ(alert->imageView()->layerAnimations().animationForKey("Shake"), nullptr);

    // 3 s after the spring began the window fades out over 0.25 s and is dropped.
    advanceTo(2.99);
    EXPECT_FALSE(alert->dismissing());
    advanceTo(3.125);
    EXPECT_TRUE(alert->dismissing());
    EXPECT_NEAR(window->presentationValues().alpha, 0.5, 1e-6);
    std::weak_ptr<UIWindow> dropped = window;
    window.reset();
    advanceTo(3.26);
    EXPECT_TRUE(dropped.expired());
    EXPECT_TRUE(windowsOnScreen().empty());
}

// The window is turned to the interface and has the screen's sides swapped; the card comes
// from below in the screen's upright terms and ends in the middle of the turned window.
TEST(InstructionOverlay, InLandscapeTheWindowTurnsAndTheCardEndsInItsMiddle) {
    const std::pair<UIInterfaceOrientation, double> turns[] = {
        {UIInterfaceOrientationLandscapeLeft, 270}, {UIInterfaceOrientationLandscapeRight, 90}};
    for (auto [orientation, degrees] : turns) {
        SCOPED_TRACE(orientation);
        TestRuntime test;
        test.platform().fakeScreen().setInterfaceOrientation(orientation);
        Instruction::show();
        test.advance(3.0);
        auto alert = Instruction::sharedInstance();
        std::shared_ptr<UIWindow> window = alert->window();
        EXPECT_EQ(window->transform(), AffineTransform::rotation(degrees * kRadiansPerDegree));
        EXPECT_EQ(window->bounds(), (Rect{{0, 0}, {667, 375}}));
        EXPECT_EQ(window->frame(), (Rect{{0, 0}, {375, 667}}));
        std::shared_ptr<UIView> card = alert->containerView();
        EXPECT_EQ(card->presentationValues().center, (Point{68 + 120, 954 + 143.5}));
        EXPECT_EQ(card->frame(), (Rect{{213.5, 44}, {240, 287}}));
        test.advance(0.3);
        EXPECT_EQ(card->presentationValues().center, (Point{333.5, 187.5}));
    }
}

// OK and the timer both dismiss; only the first does anything, so the window goes once and the
// overlay never builds another. A touch cannot reach OK while the card springs in.
TEST(InstructionOverlay, OkDuringTheEntranceThenTheTimerDismissesOnce) {
    TestRuntime test;
    Instruction::show();
    test.advance(3.1);
    auto alert = Instruction::sharedInstance();
    std::shared_ptr<UIWindow> window = alert->window();
    Point ok{188, 190 + 239 + 24};  // the middle of OK where the card is headed
    UIApplication& application = UIApplication::sharedApplication();
    application.handleTouch(window, 1, UITouchPhase::Began, ok);
    application.handleTouch(window, 1, UITouchPhase::Ended, ok);
    EXPECT_FALSE(alert->dismissing());

    alert->dismissButton()->sendActionsForControlEvents(UIControlEventTouchUpInside);
    EXPECT_TRUE(alert->dismissing());
    std::weak_ptr<UIWindow> dismissed = window;
    window.reset();
    test.advance(0.3);
    EXPECT_TRUE(dismissed.expired());
    EXPECT_TRUE(windowsOnScreen().empty());

    test.advance(3.0);  // the timer
    EXPECT_TRUE(windowsOnScreen().empty());
    alert->reset();
    EXPECT_TRUE(alert->dismissing());
}

TEST(InstructionOverlay, ATapOnOkAfterTheEntranceFadesTheWindowOut) {
    TestRuntime test;
    Instruction::show();
    test.advance(3.5);
    auto alert = Instruction::sharedInstance();
    std::weak_ptr<UIWindow> window = alert->window();
    Point ok{188, 190 + 239 + 24};
    UIApplication& application = UIApplication::sharedApplication();
    application.handleTouch(window.lock(), 1, UITouchPhase::Began, ok);
    application.handleTouch(window.lock(), 1, UITouchPhase::Ended, ok);
    EXPECT_TRUE(alert->dismissing());
    test.advance(0.3);
    EXPECT_TRUE(window.expired());
    test.advance(5);
    EXPECT_TRUE(windowsOnScreen().empty());
}

// Process type 0: "Shake" and "bug" in the accent blue, the rest in the label's dark colour.
TEST(InstructionMessage, TheShakeTypeColoursShakeAndBug) {
    TestRuntime test;
    auto alert = Instruction::sharedInstance();
    std::shared_ptr<UILabel> label = alert->messageLabel();
    EXPECT_EQ(label->text(), "Shake your device if you find a bug in the app");
    EXPECT_EQ(label->font(), UIFont::boldSystemFontOfSize(20));
    EXPECT_EQ(label->numberOfLines(), 3);
    EXPECT_EQ(label->textAlignment(), NSTextAlignment::Center);
    EXPECT_EQ(label->textColor(), tarvik_darkTextColor());
    const std::string& text = label->text();
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool blue = i < 5 || (i >= 32 && i < 35);
        EXPECT_EQ(label->attributedText().attributesAtIndex(i).foregroundColor,
                  blue ? std::optional(tarvik_drawBlueColor()) : std::nullopt)
            << i << " " << text[i];
    }
    EXPECT_TRUE(sameImage(alert->imageView()->image(), "shake device illustration"));
}

TEST(InstructionMessage, OtherTypesAskForAScreenshotInPlainText) {
    TestRuntime test;
    Tarvik::sharedInstance().setProcessType(TarvikProcessTypeManual);
    auto alert = Instruction::sharedInstance();
    std::shared_ptr<UILabel> label = alert->messageLabel();
    EXPECT_EQ(label->text(), "Take a screenshot if you find a bug in the app");
    EXPECT_TRUE(label->attributedText().runs().empty());
    EXPECT_EQ(label->textColor(), tarvik_darkTextColor());
    EXPECT_TRUE(sameImage(alert->imageView()->image(), "custom message illustration"));
}

// Every text is the host's translation; the colours follow the translated words (UTF-16).
TEST(OverlayTexts, TheHostsTranslationsAreShown) {
    TestRuntime test;
    test.platform().localization().setTranslations(
        {{"Shake", "Schüttle"},
         {"your device if you find a", "dein Gerät, wenn du einen"},
         {"bug", "Fehler"},
         {"in the app", "in der App findest"},
         {"OK", "Gut"},
         {"Take a screenshot if you find a bug in the app", "Mach ein Bildschirmfoto"},
         {"Your feedback was sent", "Danke!"}});
    auto alert = Instruction::sharedInstance();
    const NSAttributedString& text = alert->messageLabel()->attributedText();
    EXPECT_EQ(text.string(), "Schüttle dein Gerät, wenn du einen Fehler in der App findest");
    TextAttributes blue;
    blue.foregroundColor = tarvik_drawBlueColor();
    EXPECT_EQ(text.runs(), (std::vector<NSAttributedString::Run>{{{0, 8}, blue}, {{35, 6}, blue}}));
    EXPECT_EQ(alert->dismissButton()->currentTitle(), "Gut");

    Tarvik::sharedInstance().setProcessType(TarvikProcessTypeManual);
    alert->reset();
    EXPECT_EQ(alert->messageLabel()->text(), "Mach ein Bildschirmfoto");
    EXPECT_EQ(Confirmation::sharedInstance()->messageLabel()->text(), "Danke!");
}

// Each confirmation shows its card at once in the middle, for 3 s, then fades out in 0.25 s;
// the card is kept and shown again in a new window.
TEST(ConfirmationOverlay, TwoConfirmationsInARowEachShowTheCardForThreeSecondsAndFade) {
    TestRuntime test;
    auto alert = Confirmation::sharedInstance();
    std::shared_ptr<UIView> card;
    for (int showing = 0; showing < 2; ++showing) {
        SCOPED_TRACE(showing);
        Confirmation::show();
        std::shared_ptr<UIWindow> window = alert->window();
        ASSERT_EQ(windowsOnScreen(), std::vector{window});
        EXPECT_FALSE(window->clipsToBounds());
        EXPECT_EQ(window->windowLevel(), UIWindowLevelStatusBar);
        EXPECT_EQ(window->backgroundColor(), tarvik_darkTextColor().colorWithAlphaComponent(0.3));
        if (card) {
            EXPECT_EQ(alert->containerView(), card);
        }
        card = alert->containerView();
        EXPECT_EQ(card->superview(), window);
        EXPECT_EQ(card->frame(), (Rect{{68, 233}, {240, 202}}));
        EXPECT_EQ(card->presentationValues().center, (Point{188, 334}));

        test.advance(2.5);
        EXPECT_EQ(window->alpha(), 1);
        test.advance(0.5);
        EXPECT_EQ(window->alpha(), 0);
        EXPECT_EQ(card->frame(), (Rect{{68, 232.5}, {240, 202}}));  // re-centred, unrounded
        test.advance(0.125);
        EXPECT_NEAR(window->presentationValues().alpha, 0.5, 1e-9);
        std::weak_ptr<UIWindow> faded = window;
        window.reset();
        test.advance(0.125);
        EXPECT_TRUE(faded.expired());
        EXPECT_TRUE(windowsOnScreen().empty());
    }

    EXPECT_EQ(card->backgroundColor(), Color::colorWithRed(1, 1, 1, 1));
    EXPECT_EQ(card->layer().cornerRadius, 7);
    EXPECT_EQ(alert->imageView()->frame(), (Rect{{60, 48}, {120, 82}}));
    EXPECT_TRUE(sameImage(alert->imageView()->image(), "sent illustration"));
    std::shared_ptr<UILabel> label = alert->messageLabel();
    EXPECT_EQ(label->frame(), (Rect{{50, 154}, {140, 48}}));
    EXPECT_EQ(label->text(), "Your feedback was sent");
    EXPECT_EQ(label->textColor(), tarvik_drawBlueColor());
    EXPECT_EQ(label->font(), UIFont::boldSystemFontOfSize(20));
    EXPECT_EQ(label->numberOfLines(), 2);
}

TEST(ConfirmationOverlay, InLandscapeTheCardIsInTheMiddleOfTheTurnedWindow) {
    TestRuntime test;
    test.platform().fakeScreen().setInterfaceOrientation(UIInterfaceOrientationLandscapeRight);
    Confirmation::show();
    auto alert = Confirmation::sharedInstance();
    EXPECT_EQ(alert->window()->transform(), AffineTransform::rotation(90 * kRadiansPerDegree));
    EXPECT_EQ(alert->containerView()->frame(), (Rect{{214, 87}, {240, 202}}));
    test.advance(3.0);
    EXPECT_EQ(alert->containerView()->frame(), (Rect{{213.5, 86.5}, {240, 202}}));
    test.advance(0.25);
    EXPECT_TRUE(windowsOnScreen().empty());

    // The kept card follows the interface to the next showing.
    test.platform().fakeScreen().setInterfaceOrientation(UIInterfaceOrientationPortrait);
    Confirmation::show();
    EXPECT_EQ(alert->containerView()->frame(), (Rect{{68, 233}, {240, 202}}));
}

// The overlays as the user sees them over the host's screen, at scale 2. With
// TARVIK_OVERLAY_PICTURES set to a folder, each picture is also written there as a PNG.
class OverlayPictures : public ::testing::Test {
  protected:
    Image screen(const std::string& name) {
        std::optional<Image> picture =
            SoftwareRenderer::renderScreen(2, test.platform().hostWindow().snapshot(2));
        if (!picture) {
            ADD_FAILURE() << "no picture";
            return *Image::blank(1, 1, 1, Image::Opaque);
        }
        if (const char* folder = std::getenv("TARVIK_OVERLAY_PICTURES")) {
            testsupport::writeFile(std::string(folder) + "/" + name + ".png",
                                   *picture->pngRepresentation());
        }
        return *picture;
    }
    // The pixel under the point (x, y) of the screen, in points.
    static Image::Pixel at(const Image& picture, double x, double y) {
        return picture.pixelAt(static_cast<int>(x * 2), static_cast<int>(y * 2));
    }
    // The host's pixel seen through the veil: 30 % of the dark text colour over it.
    static void expectVeiled(Image::Pixel seen, Image::Pixel host) {
        Color dark = tarvik_darkTextColor();
        EXPECT_NEAR(seen.red, 0.7 * host.red + 0.3 * 255 * dark.red(), 1.5);
        EXPECT_NEAR(seen.green, 0.7 * host.green + 0.3 * 255 * dark.green(), 1.5);
        EXPECT_NEAR(seen.blue, 0.7 * host.blue + 0.3 * 255 * dark.blue(), 1.5);
    }
    static constexpr Image::Pixel kWhite{255, 255, 255, 255};

    TestRuntime test;
};

TEST_F(OverlayPictures, TheInstructionCardSpringsIntoTheMiddleUnderTheVeil) {
    Image host = *test.platform().hostWindow().snapshot(2);
    Instruction::show();
    test.advance(3.03);
    screen("instruction-rising");
    test.advance(0.02);
    screen("instruction-entering");
    test.advance(0.25);
    Image shown = screen("instruction-portrait");
    expectVeiled(at(shown, 10, 10), at(host, 10, 10));
    expectVeiled(at(shown, 370, 660), at(host, 370, 660));
    EXPECT_EQ(at(shown, 68 + 10, 190 + 10), kWhite);   // the card's corner area
    EXPECT_EQ(at(shown, 68 + 10, 190 + 280), kWhite);  // beside OK
    test.advance(2.82);
    screen("instruction-fading");
}

TEST_F(OverlayPictures, TheInstructionCardInLandscapeStandsUprightForTheUser) {
    test.platform().fakeScreen().setInterfaceOrientation(UIInterfaceOrientationLandscapeRight);
    Tarvik::sharedInstance().setProcessType(TarvikProcessTypeManual);
    Instruction::show();
    test.advance(3.1);
    screen("instruction-landscape-entering");
    test.advance(0.3);
    Image shown = screen("instruction-landscape");
    // Turned a quarter clockwise: the card's top left corner is at the screen's top right.
    std::shared_ptr<UIWindow> window = Instruction::sharedInstance()->window();
    const auto onScreen = [&](Point inCard) {
        Point inWindow{213.5 + inCard.x, 44 + inCard.y};
        Point turned = window->transform().apply({inWindow.x - 333.5, inWindow.y - 187.5});
        return Point{187.5 + turned.x, 333.5 + turned.y};
    };
    Point corner = onScreen({10, 10});
    EXPECT_GT(corner.x, 187.5);
    EXPECT_LT(corner.y, 333.5);
    EXPECT_EQ(at(shown, corner.x, corner.y), kWhite);
    Point outside = onScreen({-20, -20});
    EXPECT_NE(at(shown, outside.x, outside.y), kWhite);
}

TEST_F(OverlayPictures, TheConfirmationCardShowsAtOnceAndFades) {
    Confirmation::show();
    Image shown = screen("confirmation-portrait");
    EXPECT_EQ(at(shown, 68 + 10, 233 + 10), kWhite);
    EXPECT_EQ(at(shown, 68 + 230, 233 + 192), kWhite);
    test.advance(3.1);
    screen("confirmation-fading");
    test.platform().fakeScreen().setInterfaceOrientation(UIInterfaceOrientationLandscapeLeft);
    test.advance(0.2);
    Confirmation::show();
    screen("confirmation-landscape");
}

}  // namespace
}  // namespace tarvik
