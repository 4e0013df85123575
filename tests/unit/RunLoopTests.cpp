#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <vector>

namespace tarvik {
namespace {

using testing::TestRuntime;

TEST(RunLoop, DueWorkRunsAtItsOwnTimeInSchedulingOrder) {
    TestRuntime test;
    std::vector<std::pair<char, double>> fired;
    auto record = [&](char name) {
        return [&, name] { fired.emplace_back(name, test.runtime().clock().mediaTime()); };
    };
    auto& queue = test.runtime().mainQueue();
    queue.after(1, record('a'));
    queue.after(1, record('b'));
    queue.after(0.5, record('c'));
    test.advance(0.9);
    EXPECT_EQ(fired.size(), 1u);
    test.advance(0.1);
    // Each sees the clock at its own due time, not at the end of the step.
    EXPECT_EQ(fired,
              (std::vector<std::pair<char, double>>{{'c', 1000.5}, {'a', 1001}, {'b', 1001}}));
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

TEST(OperationQueue, RunsOneOperationAtATimeUntilEachFinishes) {
    TestRuntime test;
    std::atomic<int> running{0};
    std::atomic<int> overlapping{0};
    std::atomic<int> finished{0};
    for (int i = 0; i < 5; ++i) {
        test.runtime().operationQueue().addOperation([&](OperationQueue::Finish finish) {
            overlapping += ++running > 1 ? 1 : 0;
            // Finish from another thread, after the operation's own call returned.
            std::thread([&, finish] {
                --running;
                ++finished;
                finish();
            }).detach();
        });
    }
    test.runtime().operationQueue().waitUntilAllOperationsAreFinished();
    EXPECT_EQ(finished.load(), 5);
    EXPECT_EQ(overlapping.load(), 0);
}

}  // namespace
}  // namespace tarvik
