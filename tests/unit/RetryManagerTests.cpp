#include <tarvik/Tarvik.h>

#include "Helpers/TVKRetryManager.h"
#include "Models/TVKIssueSubmission.h"
#include "support/DeliveryFixture.h"
#include "support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using testsupport::DeliveryTest;
using testsupport::readFile;
using testsupport::writeFile;

Date at(int secondsFromNow) {
    return Runtime::current().clock().now() + std::chrono::seconds(secondsFromNow);
}

using RetryManager = DeliveryTest;

TEST_F(RetryManager, AFailedSubmissionWaits180SecondsThenIsSentByTheNextPass) {
    setSubmissionAnswer([] { return HttpResult::answer(500); });
    auto event = makeEvent();
    Date failedAt = test.runtime().clock().now();
    event->sendSubmission();
    test.drain();
    ASSERT_EQ(submissionsSent().size(), 1u);
    EXPECT_EQ(readFile(event->retryDateFilePath()),
              TVKRetryManager::stringFromRetryDate(failedAt + std::chrono::seconds(180)));

    // Passes at 60, 120 and 180 s find it not yet due (at 180 s it is due only after the
    // second has passed); the pass at 240 s sends it again.
    setSubmissionAnswer([] { return HttpResult::answer(200); });
    test.advance(180);
    EXPECT_EQ(submissionsSent().size(), 1u);
    test.advance(60);
    EXPECT_EQ(submissionsSent().size(), 2u);
    EXPECT_FALSE(fs::exists(queuedFolderOf(*event)));
}

TEST_F(RetryManager, EveryFailureWaits180SecondsBecauseEachPassStartsTheCounterAfresh) {
    setSubmissionAnswer([] { return HttpResult::answer(503); });
    auto issue = TVKIssueSubmission::create();
    issue->sendSubmission();
    test.advance(240);  // failed at 0 s, sent again at 240 s, failed again
    ASSERT_EQ(submissionsSent().size(), 2u);
    EXPECT_EQ(readFile(issue->retryDateFilePath()), TVKRetryManager::stringFromRetryDate(at(180)));
}

TEST_F(RetryManager, TheDelayGrowsWithTheCounterOfOneObject) {
    auto manager = TVKRetryManager::sharedInstance();
    auto event = makeEvent();
    for (int delay : {180, 420, 900}) {
        manager->updateRetryDate(*event);
        EXPECT_EQ(readFile(event->retryDateFilePath()),
                  TVKRetryManager::stringFromRetryDate(at(delay)));
    }
    EXPECT_EQ(event->retryCounter(), 3u);
}

TEST_F(RetryManager, ADateIsDueOnlyAfterItsSecondHasPassed) {
    auto manager = TVKRetryManager::sharedInstance();
    auto event = makeEvent();
    writeFile(event->retryDateFilePath(), TVKRetryManager::stringFromRetryDate(at(0)));
    EXPECT_FALSE(manager->isReadyToRetry(*event));
    test.platform().virtualClock().setNow(at(1));
    EXPECT_TRUE(manager->isReadyToRetry(*event));
}

TEST_F(RetryManager, WithoutARetryDateASubmissionIsGivenOneInsteadOfBeingSent) {
    // Left in Queued by an earlier run that ended before any answer.
    setSubmissionAnswer([] { return HttpResult::noResponse("offline"); });
    auto event = makeEvent();
    event->sendSubmission();
    test.drain();
    ASSERT_FALSE(fs::exists(event->retryDateFilePath()));

    test.advance(60);
    EXPECT_EQ(submissionsSent().size(), 1u);
    EXPECT_EQ(readFile(event->retryDateFilePath()), TVKRetryManager::stringFromRetryDate(at(180)));
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

TEST_F(RetryManager, ADamagedRetryDateIsRewrittenNotTrusted) {
    auto manager = TVKRetryManager::sharedInstance();
    auto event = makeEvent();
    for (const char* text : {"", "soon", "13/45/2026 10:00:00", "01/02/2026 03:04:05 extra"}) {
        writeFile(event->retryDateFilePath(), text);
        EXPECT_FALSE(manager->isReadyToRetry(*event)) << text;
        EXPECT_EQ(readFile(event->retryDateFilePath()),
                  TVKRetryManager::stringFromRetryDate(at(180)));
        event->setRetryCounter(0);
    }
}

TEST_F(RetryManager, ThePassTakesQueuedEventsThenIssuesAndForgetsWhatItSent) {
    setSubmissionAnswer([] { return HttpResult::noResponse("offline"); });
    auto issue = TVKIssueSubmission::create();
    auto event = makeEvent();
    issue->sendSubmission();
    event->sendSubmission();
    test.drain();
    auto manager = TVKRetryManager::sharedInstance();
    writeFile(issue->retryDateFilePath(), TVKRetryManager::stringFromRetryDate(at(-1)));

    manager->retryFailedSubmissions();
    auto left = manager->retrySubmissions();
    ASSERT_EQ(left.size(), 1u);  // the issue was sent; the event got a retry date
    EXPECT_EQ(left[0]->uuid(), event->uuid());
    test.drain();
    auto sent = submissionsSent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[2].request.url, "https://collector.test/v1/issue/create.json");
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
