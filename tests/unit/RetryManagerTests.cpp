#include <tarvik/Tarvik.h>

#include "Helpers/TVKRetryManager.h"
#include "support/DeliveryFixture.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <set>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using testsupport::DeliveryTest;
using testsupport::readFile;
using testsupport::writeFile;

// The retry date as written for `seconds` after the virtual clock's present.
std::string retryDateIn(int seconds) {
    return TVKRetryManager::stringFromRetryDate(Runtime::current().clock().now() +
                                                std::chrono::seconds(seconds));
}

using RetryManager = DeliveryTest;

TEST_F(RetryManager, AFailedSubmissionWaits180SecondsThenIsSentByTheNextPass) {
    setSubmissionAnswer([] { return HttpResult::answer(500); });
    auto event = makeEvent();
    event->sendSubmission();
    test.drain();
    ASSERT_EQ(submissionsSent().size(), 1u);
    EXPECT_EQ(readFile(event->retryDateFilePath()), retryDateIn(180));

    // Passes at 60, 120 and 180 s find it not yet due (at 180 s it is due only after the
    // second has passed); the pass at 240 s sends it again.
    setSubmissionAnswer([] { return HttpResult::answer(200); });
    test.advance(180);
    EXPECT_EQ(submissionsSent().size(), 1u);
    test.advance(60);
    EXPECT_EQ(submissionsSent().size(), 2u);
    EXPECT_FALSE(fs::exists(queuedFolderOf(*event)));
}

TEST_F(RetryManager, TheDelayGrowsWithTheCounterOfOneObject) {
    auto event = makeEvent();
    for (int delay : {180, 420, 900}) {
        TVKRetryManager::sharedInstance()->updateRetryDate(*event);
        EXPECT_EQ(readFile(event->retryDateFilePath()), retryDateIn(delay));
    }
}

TEST_F(RetryManager, AMissingOrDamagedRetryDateIsReplacedNotTrusted) {
    // Left in Queued by an earlier run that ended before any answer, or written by hand.
    auto event = makeEvent();
    for (const std::optional<std::string>& text : std::vector<std::optional<std::string>>{
             std::nullopt, "", "soon", "13/45/2026 10:00:00", "01/02/2026 03:04:05 extra"}) {
        SCOPED_TRACE(text.value_or("(no file)"));
        fs::remove(event->retryDateFilePath());
        if (text) {
            writeFile(event->retryDateFilePath(), *text);
        }
        event->setRetryCounter(0);
        EXPECT_FALSE(TVKRetryManager::sharedInstance()->isReadyToRetry(*event));
        EXPECT_EQ(readFile(event->retryDateFilePath()), retryDateIn(180));
    }
}

TEST_F(RetryManager, ASubmissionRemovedMeanwhileGetsNoRetryDate) {
    // The pass and a final answer for the same submission meet: the folder must stay gone.
    auto event = makeEvent();
    event->sendSubmission();
    test.drain();
    ASSERT_FALSE(fs::exists(queuedFolderOf(*event)));
    TVKRetryManager::sharedInstance()->updateRetryDate(*event);
    EXPECT_FALSE(fs::exists(queuedFolderOf(*event)));
}

// How many descriptors the process has open.
std::size_t openDescriptors() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

// While one send hangs, the passes go on: a submission that is queued or being sent is not
// queued again, and an operation waiting its turn holds no open body.
TEST_F(RetryManager, PassesDuringAHangingSendQueueEachSubmissionOnce) {
    std::promise<void> sending;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> first{true};
    setSubmissionAnswer([&] {
        if (first.exchange(false)) {
            sending.set_value();
            released.wait();
        }
        return HttpResult::answer(500);
    });
    std::set<std::string> uuids;
    for (int i = 0; i < 5; ++i) {
        auto event = makeEvent();
        event->setSubmissionStatus(TVKSubmissionStatusQueued);
        writeFile(event->retryDateFilePath(), retryDateIn(-1));
        uuids.insert(event->uuid());
    }
    auto manager = TVKRetryManager::sharedInstance();
    manager->retryFailedSubmissions();
    bool hanging =
        sending.get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    std::size_t descriptors = openDescriptors();
    for (int pass = 0; pass < 30; ++pass) {
        manager->retryFailedSubmissions();
    }
    EXPECT_LE(test.runtime().operationQueue().operationCount(), 5u);
    EXPECT_LE(openDescriptors(), descriptors);
    release.set_value();
    ASSERT_TRUE(hanging);
    test.drain();

    // Each was sent once, and once answered it can be queued again: the next due pass sends
    // every one of them a second time.
    std::map<std::string, int> posts, once;
    for (const std::string& uuid : uuids) {
        once[uuid] = 1;
        for (const auto& exchange : submissionsSent()) {
            posts[uuid] += exchange.body.find(uuid) != std::string::npos;
        }
    }
    EXPECT_EQ(posts, once);
    test.advance(240);
    EXPECT_EQ(submissionsSent().size(), 10u);
}

TEST(RetryDateText, UsesTheDevicesTimeZone) {
    const char* previous = std::getenv("TZ");
    std::string saved = previous ? previous : "";
    setenv("TZ", "America/New_York", 1);
    tzset();
    Date date = std::chrono::sys_days{std::chrono::year{2026} / 7 / 4} + std::chrono::hours(15) +
                std::chrono::minutes(2) + std::chrono::seconds(9) + std::chrono::milliseconds(750);
    EXPECT_EQ(TVKRetryManager::stringFromRetryDate(date), "07/04/2026 11:02:09");
    EXPECT_EQ(TVKRetryManager::retryDateFromString("07/04/2026 11:02:09"),
              std::chrono::floor<std::chrono::seconds>(date));
    EXPECT_EQ(TVKRetryManager::retryDateFromString("7/4/2026 11:02"), std::nullopt);
    if (previous) {
        setenv("TZ", saved.c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}

}  // namespace
}  // namespace tarvik
