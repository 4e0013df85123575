#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/TVKMemoryManager.h"
#include "Platform/SystemNotifications.h"
#include "Platform/Testing/TestRuntime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing::FakeDevice;
using ::testing::MatchesRegex;
using testing::TestRuntime;

// The user-tracking log's records, without their time stamps.
std::vector<std::string> trackingLogMessages() {
    std::ifstream in(TVKLogger::sharedInstance()->userTrackingLogFilePath());
    std::vector<std::string> messages;
    for (std::string line; std::getline(in, line);) {
        // "yyyy-MM-dd HH:mm:ss.SSSSSS message"
        messages.push_back(line.size() > 27 ? line.substr(27) : "<short line: " + line + ">");
    }
    return messages;
}

class MemoryManagerTest : public ::testing::Test {
  protected:
    MemoryManagerTest() : device(test.platform().fakeDevice()) {
        fs::create_directories(TVKLogger::tempLogsDirectory());
    }
    // Counts the warnings that reach the notification centre, and where they were posted.
    void countWarnings() {
        test.runtime().notificationCenter().addObserver(
            UIApplicationDidReceiveMemoryWarningNotification, [this](const Notification&) {
                ++warnings;
                postedOnMainQueue = test.runtime().mainQueue().isMainThread();
            });
    }
    TestRuntime test;
    FakeDevice& device;
    std::atomic<int> warnings{0};
    std::atomic<bool> postedOnMainQueue{false};
};

using MemoryWarnings = MemoryManagerTest;

TEST_F(MemoryWarnings, PlatformPressureIsLoggedWithTheResidentSize) {
    TVKMemoryManager::beginWatchingMemory();
    countWarnings();
    device.setResidentSize(73400320);
    device.simulateMemoryPressure();
    // The warning is posted on the main queue, not on the reporting thread.
    EXPECT_EQ(warnings.load(), 0);
    test.drain();
    EXPECT_EQ(warnings.load(), 1);
    EXPECT_THAT(trackingLogMessages(), ElementsAre("Received memory warning notification.",
                                                   "Memory in use (in bytes): 73400320"));
}

TEST_F(MemoryWarnings, PressureReportedFromAnotherThreadIsPostedOnTheMainQueue) {
    TVKMemoryManager::beginWatchingMemory();
    countWarnings();
    std::thread([this] { device.simulateMemoryPressure(); }).join();
    test.drain();
    EXPECT_EQ(warnings.load(), 1);
    EXPECT_TRUE(postedOnMainQueue.load());
}

TEST_F(MemoryWarnings, AWarningTheHostPostsIsLoggedToo) {
    TVKMemoryManager::beginWatchingMemory();
    test.runtime().notificationCenter().post(UIApplicationDidReceiveMemoryWarningNotification);
    EXPECT_THAT(trackingLogMessages(), ElementsAre("Received memory warning notification.",
                                                   "Memory in use (in bytes): 67108864"));
}

TEST_F(MemoryWarnings, AnUnreadableResidentSizeIsLoggedAsAnError) {
    TVKMemoryManager::beginWatchingMemory();
    device.setResidentSize(std::nullopt);
    test.runtime().notificationCenter().post(UIApplicationDidReceiveMemoryWarningNotification);
    std::vector<std::string> messages = trackingLogMessages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "Received memory warning notification.");
    EXPECT_THAT(messages[1], MatchesRegex("Error with task_info\\(\\): .+"));
}

TEST_F(MemoryWarnings, StartingAgainChangesNothing) {
    TVKMemoryManager::beginWatchingMemory();
    auto first = TVKMemoryManager::sharedInstance();
    TVKMemoryManager::beginWatchingMemory();
    EXPECT_EQ(TVKMemoryManager::sharedInstance(), first);
    device.simulateMemoryPressure();
    test.drain();
    // One observer: one pair of lines per warning.
    EXPECT_EQ(trackingLogMessages().size(), 2u);
}

TEST_F(MemoryWarnings, StartingTheSdkBeginsWatching) {
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, false);
    EXPECT_TRUE(device.isWatchingMemoryPressure());
    device.simulateMemoryPressure();
    test.drain();
    EXPECT_THAT(trackingLogMessages(), ElementsAre("Received memory warning notification.",
                                                   "Memory in use (in bytes): 67108864"));
}

}  // namespace
}  // namespace tarvik
