#include "Kit/UIApplication.h"
#include "Kit/UIDevice.h"
#include "Kit/UIScreen.h"
#include "Platform/SystemNotifications.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

namespace tarvik {
namespace {

using testing::TestRuntime;

TEST(KitKeyWindow, TheLatestWindowMadeKeyIsKeyWhileVisible) {
    TestRuntime test;
    UIApplication& application = UIApplication::sharedApplication();
    auto host = std::make_shared<UIWindow>(Rect{{0, 0}, {375, 667}});
    auto reporter = std::make_shared<UIWindow>(Rect{{0, 0}, {375, 667}});
    EXPECT_EQ(application.keyWindow(), nullptr);

    host->makeKeyAndVisible();
    EXPECT_FALSE(host->isHidden());
    EXPECT_TRUE(host->isKeyWindow());
    reporter->setHidden(false);  // visible is not key
    EXPECT_EQ(application.keyWindow(), host);
    reporter->makeKeyAndVisible();
    EXPECT_TRUE(reporter->isKeyWindow());
    EXPECT_FALSE(host->isKeyWindow());

    reporter->setHidden(true);
    EXPECT_EQ(application.keyWindow(), host);
    reporter->makeKeyAndVisible();
    reporter.reset();
    EXPECT_EQ(application.keyWindow(), host);
    host->setHidden(true);
    EXPECT_EQ(application.keyWindow(), nullptr);
}

TEST(KitOrientation, DeviceTurnsArePostedOnTheMainQueueAndTheStatusBarIsThePlatforms) {
    TestRuntime test;
    UIApplication& application = UIApplication::sharedApplication();
    UIDevice& device = UIDevice::currentDevice();
    EXPECT_TRUE(device.isGeneratingDeviceOrientationNotifications());
    std::vector<const NSObject*> posted;
    test.runtime().notificationCenter().addObserver(
        UIDeviceOrientationDidChangeNotification, [&](const Notification& notification) {
            posted.push_back(notification.objectAs<NSObject>().get());
        });
    testing::FakeScreen& screen = test.platform().fakeScreen();

    EXPECT_EQ(application.statusBarOrientation(), UIInterfaceOrientationPortrait);
    screen.setInterfaceOrientation(UIInterfaceOrientationLandscapeLeft);
    screen.setDeviceOrientation(UIDeviceOrientationLandscapeRight);
    EXPECT_TRUE(posted.empty());
    test.drain();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0], static_cast<const NSObject*>(&device));
    EXPECT_EQ(device.orientation(), UIDeviceOrientationLandscapeRight);
    EXPECT_EQ(application.statusBarOrientation(), 4);
    EXPECT_TRUE(UIInterfaceOrientationIsLandscape(application.statusBarOrientation()));
    EXPECT_FALSE(UIInterfaceOrientationIsPortrait(application.statusBarOrientation()));
    // The screen keeps the bounds of the device held upright.
    EXPECT_EQ(UIScreen::mainScreen().bounds(), (Rect{{0, 0}, {375, 667}}));
    EXPECT_EQ(UIScreen::mainScreen().scale(), 2);

    screen.setDeviceOrientation(UIDeviceOrientationLandscapeRight);  // no turn
    screen.setDeviceOrientation(UIDeviceOrientationFaceUp);
    test.drain();
    EXPECT_EQ(posted.size(), 2u);
    EXPECT_TRUE(UIInterfaceOrientationIsLandscape(application.statusBarOrientation()));

    device.beginGeneratingDeviceOrientationNotifications();
    device.endGeneratingDeviceOrientationNotifications();
    screen.setDeviceOrientation(UIDeviceOrientationPortrait);
    test.drain();
    EXPECT_EQ(posted.size(), 3u);  // one begin still holds
    device.endGeneratingDeviceOrientationNotifications();
    screen.setDeviceOrientation(UIDeviceOrientationFaceDown);
    test.drain();
    EXPECT_EQ(posted.size(), 3u);
}

}  // namespace
}  // namespace tarvik
