#include "Kit/UIView.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace tarvik {
namespace {

using testing::TestRuntime;

// A 100 x 100 view at the origin and a record of its completions.
class ViewAnimation : public ::testing::Test {
  protected:
    TestRuntime test;
    std::shared_ptr<UIView> view = std::make_shared<UIView>(Rect{{0, 0}, {100, 100}});
    std::vector<bool> completions;

    UIViewAnimationCompletion record() {
        return [this](bool finished) {
            EXPECT_TRUE(test.runtime().mainQueue().isMainThread());
            completions.push_back(finished);
        };
    }
    Point shownCenter() const { return view->presentationValues().center; }
};

TEST_F(ViewAnimation, PlainAnimationEasesInAndOutAndCompletesOnceAtItsEnd) {
    UIView::animateWithDuration(
        1.0,
        [&] {
            view->setCenter({150, 50});
            view->setAlpha(0);
        },
        record());
    EXPECT_EQ(view->center(), (Point{150, 50}));  // the model changes at once
    EXPECT_EQ(view->alpha(), 0);
    EXPECT_EQ(shownCenter().x, 50);
    EXPECT_EQ(view->presentationValues().alpha, 1);

    test.advance(0.25);
    // Ease-in-out has done about an eighth of the way after a quarter of the time.
    EXPECT_GT(shownCenter().x, 50 + 100 * 0.10);
    EXPECT_LT(shownCenter().x, 50 + 100 * 0.16);
    test.advance(0.25);
    EXPECT_NEAR(shownCenter().x, 100, 1e-6);  // symmetric: half way at half time
    EXPECT_NEAR(view->presentationValues().alpha, 0.5, 1e-6);
    EXPECT_TRUE(view->isAnimating(test.runtime().clock().mediaTime()));
    EXPECT_TRUE(completions.empty());

    test.advance(0.5);
    EXPECT_EQ(shownCenter(), (Point{150, 50}));
    EXPECT_EQ(completions, std::vector<bool>{true});
    EXPECT_FALSE(view->isAnimating(test.runtime().clock().mediaTime()));
    test.advance(1);
    EXPECT_EQ(completions.size(), 1u);
}

TEST_F(ViewAnimation, SpringStartsAtItsVelocityOvershootsWhenUnderdampedAndSettlesAtTheDuration) {
    // The instruction card's entrance: 0.25 s, damping 0.6, velocity 3 distances a second.
    UIView::animateWithDuration(
        0.25, 0, 0.6, 3.0, UIViewAnimationOptionCurveEaseIn,
        [&] {
            view->setCenter({50, 150});
        },
        record());
    EXPECT_EQ(shownCenter().y, 50);
    test.advance(0.0001);
    // At first it moves at 3 distances (300 points) a second.
    EXPECT_NEAR(shownCenter().y - 50, 0.03, 0.003);
    double furthest = 0;
    for (int step = 0; step < 48; ++step) {  // to 0.2401 s
        test.advance(0.005);
        furthest = std::max(furthest, shownCenter().y);
    }
    EXPECT_GT(furthest, 155);                // swings past the end
    EXPECT_NEAR(shownCenter().y, 150, 0.5);  // and has settled near it before the duration
    EXPECT_TRUE(completions.empty());
    test.advance(0.01);
    EXPECT_EQ(shownCenter().y, 150);
    EXPECT_EQ(completions, std::vector<bool>{true});

    // Damping 1 never passes the end, whatever the start.
    UIView::animateWithDuration(0.6, 0, 1.0, 0, 0, [&] { view->setCenter({50, 50}); }, {});
    for (int step = 0; step < 120; ++step) {
        test.advance(0.005);
        EXPECT_GE(shownCenter().y, 50 - 1e-9);
    }
}

TEST_F(ViewAnimation, BeginCommitAnimatesTheSettersBetweenAndCanStartFromWhatIsShown) {
    UIView::beginAnimations(nullptr, nullptr);
    UIView::setAnimationDuration(0.3);
    UIView::setAnimationBeginsFromCurrentState(true);
    view->setFrame({{0, 100}, {100, 100}});
    UIView::commitAnimations();
    view->setAlpha(0.5);  // after the commit: not animated
    EXPECT_EQ(view->presentationValues().alpha, 0.5);
    test.advance(0.15);
    double halfWay = shownCenter().y;
    EXPECT_NEAR(halfWay, 100, 1e-6);

    // From what is shown: no jump, and the first animation is taken over, not finished.
    UIView::animateWithDuration(
        0.3, 0, 1, 0, UIViewAnimationOptionBeginFromCurrentState,
        [&] {
            view->setCenter({50, 50});
        },
        record());
    EXPECT_NEAR(shownCenter().y, halfWay, 1e-9);
    test.advance(0.15);
    // From the old value instead (what the view was set to before): it jumps there first.
    UIView::animateWithDuration(
        0.3,
        [&] {
            view->setCenter({50, 0});
        },
        record());
    EXPECT_EQ(shownCenter().y, 50);
    test.drain();
    EXPECT_EQ(completions, std::vector<bool>{false});  // the spring lost its only value
    test.advance(0.3);
    EXPECT_EQ(completions, (std::vector<bool>{false, true}));
    EXPECT_EQ(shownCenter().y, 0);

    // Left at its default, the older form takes 0.2 s.
    UIView::beginAnimations(nullptr, nullptr);
    view->setCenter({50, 100});
    UIView::commitAnimations();
    test.advance(0.1);
    EXPECT_NEAR(shownCenter().y, 50, 1e-6);
    test.advance(0.1);
    EXPECT_EQ(shownCenter().y, 100);
}

TEST_F(ViewAnimation, ZeroDurationDelayAndBlocksWithoutChangesStillCompleteOnTheMainQueue) {
    UIView::animateWithDuration(
        0, [&] { view->setAlpha(0.2); }, record());
    EXPECT_EQ(view->presentationValues().alpha, 0.2);
    EXPECT_TRUE(completions.empty());  // never inside the call
    test.drain();
    EXPECT_EQ(completions, std::vector<bool>{true});

    // A delay keeps what is shown where it was until the animation begins.
    UIView::animateWithDuration(
        0.5, 0.25, 1, 0, 0,
        [&] {
            view->setCenter({50, 250});
        },
        record());
    test.advance(0.2);
    EXPECT_EQ(shownCenter().y, 50);
    test.advance(0.53);
    EXPECT_EQ(completions.size(), 1u);
    test.advance(0.02);
    EXPECT_EQ(completions.size(), 2u);

    // Nothing animatable changed: the completion still waits for delay and duration.
    UIView::animateWithDuration(
        0.5, 0.25, 1, 0, 0, [] {}, record());
    test.advance(0.73);
    EXPECT_EQ(completions.size(), 2u);
    test.advance(0.02);
    EXPECT_EQ(completions, (std::vector<bool>{true, true, true}));
}

TEST_F(ViewAnimation, AnimatingViewsTakeTouchesOnlyWhenTheOptionAllowsIt) {
    UIView::animateWithDuration(0.5, [&] { view->setCenter({60, 50}); }, {});
    EXPECT_EQ(view->hitTest({50, 50}), nullptr);
    test.advance(0.5);
    EXPECT_EQ(view->hitTest({50, 50}), view);
    UIView::animateWithDuration(0.5, 0, 1, 0, UIViewAnimationOptionAllowUserInteraction,
                                [&] {
                                    view->setCenter({50, 50});
                                },
                                {});
    EXPECT_EQ(view->hitTest({50, 50}), view);
}

TEST_F(ViewAnimation, LayerPositionAnimationShakesWhatIsShownOnlyAndIsDroppedWhenOver) {
    // The illustration's shake: 12 points sideways, 0.075 s, there and back, five times.
    auto shake = CABasicAnimation::animationWithKeyPath("position.x");
    shake->setByValue(12);
    shake->setDuration(0.075);
    shake->setAutoreverses(true);
    shake->setRepeatCount(5);
    view->layerAnimations().addAnimation(*shake, "Shake");
    EXPECT_EQ(shownCenter().x, 50);
    test.advance(0.0375);
    EXPECT_NEAR(shownCenter().x, 56, 1e-9);
    test.advance(0.0375);
    EXPECT_NEAR(shownCenter().x, 62, 1e-9);
    test.advance(0.0375);
    EXPECT_NEAR(shownCenter().x, 56, 1e-9);  // on the way back
    test.advance(0.6);                       // 0.7125 s: the middle of the fifth return
    EXPECT_NEAR(shownCenter().x, 56, 1e-9);
    EXPECT_EQ(view->center().x, 50);  // the model never moves
    ASSERT_NE(view->layerAnimations().animationForKey("Shake"), nullptr);
    EXPECT_EQ(view->layerAnimations().animationForKey("Shake")->repeatCount(), 5);
    test.advance(0.04);
    EXPECT_EQ(shownCenter().x, 50);
    EXPECT_EQ(view->layerAnimations().animationForKey("Shake"), nullptr);

    view->layerAnimations().addAnimation(*shake, "Shake");
    test.advance(0.0375);
    view->layerAnimations().removeAnimationForKey("Shake");
    EXPECT_EQ(shownCenter().x, 50);
}

}  // namespace
}  // namespace tarvik
