#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/TVKMemoryManager.h"
#include "Platform/SystemNotifications.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/TrackingLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace tarvik {
namespace {

using ::testing::ElementsAre;
using testing::TestRuntime;
using testsupport::trackingLogMessages;

TEST(MemoryWarnings, StartingTheSdkLogsPressureOnTheMainQueueAndTheHostsWarningsToo) {
    TestRuntime test;
    std::filesystem::create_directories(TVKLogger::tempLogsDirectory());
    testing::FakeDevice& device = test.platform().fakeDevice();
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, false);
    TVKMemoryManager::beginWatchingMemory();  // a second start changes nothing
    EXPECT_TRUE(device.isWatchingMemoryPressure());
    std::atomic<int> warningsOnMainQueue{0};
    test.runtime().notificationCenter().addObserver(
        UIApplicationDidReceiveMemoryWarningNotification, [&](const Notification&) {
            warningsOnMainQueue += test.runtime().mainQueue().isMainThread() ? 1 : 0;
        });

    // The platform reports pressure on a thread of its own; the warning waits for the main queue.
    device.setResidentSize(73400320);
    std::thread([&] { device.simulateMemoryPressure(); }).join();
    EXPECT_EQ(warningsOnMainQueue.load(), 0);
    test.drain();
    EXPECT_EQ(warningsOnMainQueue.load(), 1);
    device.setResidentSize(std::nullopt);
    test.runtime().notificationCenter().post(UIApplicationDidReceiveMemoryWarningNotification);
    // One observer: one pair of lines per warning.
    EXPECT_THAT(
        trackingLogMessages(),
        ElementsAre("Received memory warning notification.", "Memory in use (in bytes): 73400320",
                    "Received memory warning notification.",
                    ::testing::MatchesRegex("Error with task_info\\(\\): .+")));
}

}  // namespace
}  // namespace tarvik
