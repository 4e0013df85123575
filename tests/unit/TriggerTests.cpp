#include <tarvik/Tarvik.h>
#include <tarvik/TarvikConstants.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/TVKScreenshotHelper.h"
#include "Helpers/TVKShakeDetectionHelper.h"
#include "Kit/UIApplication.h"
#include "Platform/SystemNotifications.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/TrackingLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <thread>

namespace tarvik {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using testing::ScriptedAccelerometer;
using Shake = TVKShakeDetectionHelper;

constexpr Acceleration kStill{0, 0, -1};

// Counts the launch notifications that the triggers post.
class Triggers : public ::testing::Test {
  protected:
    Triggers() {
        std::filesystem::create_directories(TVKLogger::tempLogsDirectory());
        test.runtime().notificationCenter().addObserver(
            TarvikNotificationShouldLaunchIssueSubmission,
            [this](const Notification&) { ++launches; });
    }
    ScriptedAccelerometer& accelerometer() { return test.platform().accelerometer(); }
    // Lets `start` start detection, then moves half a check on, so that each check falls
    // squarely inside the moves that follow.
    template <class Start>
    void startDetection(Start start) {
        start();
        test.advance(Shake::kCheckInterval / 2);
    }
    // Moves the device for `checks` firings of the check timer.
    void hold(Acceleration acceleration, int checks) {
        accelerometer().setAcceleration(acceleration);
        test.advance(Shake::kCheckInterval * checks);
    }

    testing::TestRuntime test;
    int launches = 0;
};

TEST_F(Triggers, AShakeIsTwoStrongChecksInARowAndASingleJoltOnlyArms) {
    startDetection(Shake::startDetectingShake);
    hold(kStill, 5);
    hold({2.5, 0, 0}, 1);  // a jolt: armed
    hold(kStill, 3);
    EXPECT_EQ(launches, 0);
    hold({0, -1.5, 0}, 1);  // strong again, 0.8 s after: armed again only
    hold({1.7, 0, 0}, 1);   // and again 0.2 s later: a shake
    EXPECT_EQ(launches, 1);
    hold({-1.7, 1.3, 0}, 2);  // a continued shake posts at every further strong check
    EXPECT_EQ(launches, 3);
    // Two strong checks 0.4 s apart are two jolts.
    hold(kStill, 3);
    hold({2, 0, 0}, 1);
    hold(kStill, 1);
    hold({2, 0, 0}, 1);
    EXPECT_EQ(launches, 3);
}

TEST_F(Triggers, TheThresholdsAreStrictAndTheFirstShakeTimeIsTheHelpersCreation) {
    accelerometer().setAcceleration(Acceleration{-1.6, Shake::kThresholdY, 0});
    EXPECT_EQ(Shake::kThresholdY, 1.2800000190734864);
    startDetection(Shake::startDetectingShake);
    hold(accelerometer().read().value(), 10);
    EXPECT_EQ(launches, 0);
    hold({0, std::nextafter(Shake::kThresholdY, 2.0), 0}, 2);
    EXPECT_EQ(launches, 1);

    // A fresh helper: its creation counts as the last strong check.
    testing::TestRuntime fresh;
    int freshLaunches = 0;
    fresh.runtime().notificationCenter().addObserver(TarvikNotificationShouldLaunchIssueSubmission,
                                                     [&](const Notification&) { ++freshLaunches; });
    fresh.platform().accelerometer().setAcceleration(Acceleration{0, 1.3, 0});
    Shake::startDetectingShake();
    fresh.advance(Shake::kCheckInterval * 1.25);  // one check, 0.2 s after the creation
    EXPECT_EQ(freshLaunches, 1);
}

TEST_F(Triggers, OutsideTheShakeTypeDetectionIsDormantAndStopOnlyActsOnATimer) {
    Tarvik& tarvik = Tarvik::sharedInstance();
    Shake::stopDetectingShake();  // before any start: nothing to stop
    startDetection([&] { tarvik.setProcessType(TarvikProcessTypeShake); });
    hold(kStill, 2);
    int reads = accelerometer().readCount();
    EXPECT_EQ(reads, 2);

    // The manual type leaves the timer running, but it finds the type wrong and reads nothing.
    tarvik.setProcessType(TarvikProcessTypeManual);
    hold({3, 3, 0}, 5);
    test.runtime().notificationCenter().post(TarvikNotificationDidShakeInSimulator);
    EXPECT_EQ(accelerometer().readCount(), reads);
    EXPECT_EQ(launches, 0);

    tarvik.setProcessType(TarvikProcessTypeShake);  // wakes it up again
    hold({3, 3, 0}, 3);
    EXPECT_GE(launches, 1);
    test.runtime().notificationCenter().post(TarvikNotificationDidShakeInSimulator);
    int inShakeType = launches;

    // The screenshot type stops it: no timer, no reading, no simulator shake.
    tarvik.setProcessType(TarvikProcessTypeScreenshot);
    reads = accelerometer().readCount();
    hold({3, 3, 0}, 5);
    test.runtime().notificationCenter().post(TarvikNotificationDidShakeInSimulator);
    EXPECT_EQ(accelerometer().readCount(), reads);
    EXPECT_EQ(launches, inShakeType);
}

TEST_F(Triggers, WithoutAnAccelerometerThereIsOneLineAndNoTimer) {
    Tarvik::sharedInstance().setDebug(true);
    accelerometer().setAvailable(false);
    Shake::startDetectingShake();
    Shake::startDetectingShake();
    test.advance(2);
    Shake::stopDetectingShake();
    EXPECT_EQ(accelerometer().readCount(), 0);
    EXPECT_THAT(testsupport::trackingLogMessages(),
                ElementsAre("Accelerometer not available for shake detection"));
    EXPECT_THAT(test.consoleLines(), Contains("Accelerometer not available for shake detection"));
    EXPECT_THAT(test.consoleLines(), Not(Contains("Shake gesture possible!")));

    testing::TestRuntime withAccelerometer;
    Tarvik::sharedInstance().setDebug(true);
    Shake::startDetectingShake();
    EXPECT_THAT(withAccelerometer.consoleLines(), ElementsAre("Shake gesture possible!"));
}

TEST_F(Triggers, AShakeAfterTheStartOpensOneReporter) {
    startDetection([] { Tarvik::startWithAPIKey("key", TarvikProcessTypeShake, false); });
    Tarvik& tarvik = Tarvik::sharedInstance();
    hold({2, 0, 0}, 2);
    ASSERT_TRUE(tarvik.window());
    std::shared_ptr<UIWindow> reporter = tarvik.window();
    hold({2, 0, 0}, 3);  // shaking on while it is open
    EXPECT_EQ(tarvik.window(), reporter);
    EXPECT_EQ(test.platform().systemCalls().calls(),
              (std::vector<std::string>{"sound 1108", "snapshot"}));
    // The start tracks the application's dispatch too.
    UIApplication::sharedApplication().sendApplicationMessage(
        "application:performFetchWithCompletionHandler:");
    EXPECT_THAT(testsupport::trackingLogMessages(),
                Contains("-[UIApplication application:performFetchWithCompletionHandler:]"));
}

TEST_F(Triggers, TheUsersScreenshotOpensTheReporterOnlyInTheScreenshotType) {
    Tarvik& tarvik = Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, false);
    testing::ScriptedUserScreenshots& screenshots = test.platform().userScreenshots();
    auto takeScreenshot = [&] {
        std::thread([&] { screenshots.takeScreenshot(); }).join();  // the platform's own thread
        test.drain();
    };
    takeScreenshot();
    EXPECT_FALSE(screenshots.isWatched());  // nobody asked yet

    tarvik.setProcessType(TarvikProcessTypeScreenshot);
    tarvik.setProcessType(TarvikProcessTypeShake);  // the observer stays, the type test fails
    EXPECT_TRUE(screenshots.isWatched());
    takeScreenshot();
    tarvik.setProcessType(3);  // a type without a trigger
    takeScreenshot();
    EXPECT_EQ(launches, 0);

    tarvik.setProcessType(TarvikProcessTypeScreenshot);
    takeScreenshot();
    EXPECT_EQ(launches, 1);
    ASSERT_TRUE(tarvik.window());
    // The user's screenshot made its own sound.
    EXPECT_EQ(test.platform().systemCalls().calls(), std::vector<std::string>{"snapshot"});
}

}  // namespace
}  // namespace tarvik
