#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

namespace tarvik {
namespace {

using testing::TestRuntime;

TEST(RunLoop, AsyncTasksRunInOrderOnDrain) {
    TestRuntime test;
    std::vector<int> order;
    auto& queue = test.runtime().mainQueue();
    queue.async([&] { order.push_back(1); });
    queue.async([&] { order.push_back(2); });
    EXPECT_TRUE(order.empty());
    test.drain();
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(RunLoop, AfterFiresOnlyWhenTheVirtualClockReachesIt) {
    TestRuntime test;
    int fired = 0;
    double firedAt = 0;
    test.runtime().mainQueue().after(2.5, [&] {
        ++fired;
        firedAt = test.runtime().clock().mediaTime();
    });
    test.advance(2.4);
    EXPECT_EQ(fired, 0);
    test.advance(0.2);
    EXPECT_EQ(fired, 1);
    // The callback sees the clock at its own due time, not at the end of the step.
    EXPECT_DOUBLE_EQ(firedAt, 1000.0 + 2.5);
}

TEST(RunLoop, RepeatingTimerFiresFromItsFirstDateAndSkipsMissedFires) {
    TestRuntime test;
    auto& clock = test.runtime().clock();
    std::vector<double> fires;
    auto timer = test.runtime().mainQueue().scheduleTimer(
        clock.now() + std::chrono::seconds(10), 60, true,
        [&] { fires.push_back(clock.mediaTime() - 1000.0); });
    test.advance(9);
    EXPECT_TRUE(fires.empty());
    test.advance(1);
    test.advance(120);
    EXPECT_EQ(fires, (std::vector<double>{10, 70, 130}));
    timer->invalidate();
    test.advance(600);
    EXPECT_EQ(fires.size(), 3u);
}

TEST(RunLoop, TimersDueAtTheSameTimeFireInSchedulingOrder) {
    TestRuntime test;
    std::vector<char> order;
    auto& queue = test.runtime().mainQueue();
    queue.after(1, [&] { order.push_back('a'); });
    queue.after(1, [&] { order.push_back('b'); });
    queue.after(0.5, [&] { order.push_back('c'); });
    test.advance(1);
    EXPECT_EQ(order, (std::vector<char>{'c', 'a', 'b'}));
}

TEST(RunLoop, BackgroundWorkThatPostsToTheMainQueueIsDrained) {
    TestRuntime test;
    std::atomic<int> ranOnMain{0};
    test.runtime().globalQueue().async([&] {
        Runtime::current().mainQueue().async([&] {
            if (Runtime::current().mainQueue().isMainThread()) {
                ++ranOnMain;
            }
        });
    });
    test.drain();
    EXPECT_EQ(ranOnMain.load(), 1);
}

TEST(OperationQueue, RunsOneOperationAtATimeUntilEachFinishes) {
    TestRuntime test;
    std::atomic<int> running{0};
    std::atomic<int> maxRunning{0};
    std::atomic<int> done{0};
    auto& queue = test.runtime().operationQueue();
    for (int i = 0; i < 5; ++i) {
        queue.addOperation([&](OperationQueue::Finish finish) {
            int now = ++running;
            maxRunning = std::max(maxRunning.load(), now);
            // Finish from another thread, after the operation's own call returned.
            std::thread([&, finish] {
                --running;
                ++done;
                finish();
            }).detach();
        });
    }
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(done.load(), 5);
    EXPECT_EQ(maxRunning.load(), 1);
}

}  // namespace
}  // namespace tarvik
