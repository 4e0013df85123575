#include <tarvik/Tarvik.h>

#include "Helpers/NSString+Tarvik.h"
#include "Helpers/TVKEventConfigurationManager.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/TVKSubmissionOperation.h"
#include "Models/TVKIssueSubmission.h"
#include "support/DeliveryFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testsupport::answerWithBody;
using testsupport::DeliveryTest;

using SubmissionOperation = DeliveryTest;

struct StatusCase {
    long status;  // 0: no answer at all
    bool kept;
    bool failureAnnounced;  // and so given a retry date
};

void PrintTo(const StatusCase& statusCase, std::ostream* stream) {
    *stream << "HTTP " << statusCase.status;
}

class SubmissionOperationStatus : public DeliveryTest,
                                  public ::testing::WithParamInterface<StatusCase> {};

TEST_P(SubmissionOperationStatus, DecidesTheSubmissionsFate) {
    StatusCase expected = GetParam();
    setSubmissionAnswer([&] {
        return expected.status ? HttpResult::answer(expected.status)
                               : HttpResult::noResponse("connection refused");
    });
    std::atomic<int> failures{0};
    test.runtime().notificationCenter().addObserver(TarvikNotificationDidFailSubmission,
                                                    [&](const Notification&) { ++failures; });

    auto issue = TVKIssueSubmission::create();
    issue->sendSubmission();
    test.drain();

    EXPECT_EQ(fs::exists(queuedFolderOf(*issue)), expected.kept);
    EXPECT_EQ(failures.load(), expected.failureAnnounced ? 1 : 0);
    EXPECT_EQ(fs::exists(issue->retryDateFilePath()), expected.failureAnnounced);
}

INSTANTIATE_TEST_SUITE_P(
    AnswersFromTheService, SubmissionOperationStatus,
    ::testing::Values(StatusCase{200, false, false}, StatusCase{400, false, false},
                      StatusCase{401, false, false}, StatusCase{201, true, true},
                      StatusCase{204, true, true}, StatusCase{302, true, true},
                      StatusCase{404, true, true}, StatusCase{500, true, true},
                      StatusCase{503, true, true}, StatusCase{0, true, false}),
    [](const auto& info) {
        return info.param.status ? std::to_string(info.param.status) : "NoAnswer";
    });

TEST_F(SubmissionOperation, EventSettingsInASuccessSwitchEventsOffWithTheirIntervalAndLists) {
    // The new interval restarts polling at once, and the service still says the same.
    setConfigurationAnswer(R"({"enabled": false, "check_interval": 30})");
    setSubmissionAnswer([] {
        return answerWithBody(200, R"({"event": {"enabled": false, "check_interval": 30,
                            "ignored": {"messages": ["ABC"], "apps": ["DEF"]}}})");
    });
    makeEvent()->sendSubmission();
    test.drain();
    auto configuration = TVKEventConfigurationManager::sharedInstance();
    EXPECT_FALSE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_EQ(configuration->intervalSeconds(), 1800);
    EXPECT_THAT(configuration->mutedMessages(), ElementsAre("ABC"));
    EXPECT_THAT(configuration->mutedApplications(), ElementsAre("DEF"));
    EXPECT_TRUE(configuration->mutedDevices().empty());

    // Switched on again, events keep the interval, which only matters while they are off.
    setSubmissionAnswer([] {
        return answerWithBody(200, R"({"event": {"enabled": true, "check_interval": 60}})");
    });
    TVKIssueSubmission::create()->sendSubmission();
    test.drain();
    EXPECT_TRUE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_EQ(configuration->intervalSeconds(), 1800);
}

TEST_F(SubmissionOperation, AMutedEventIsRemovedUnsentButAnEventWithoutMessageIsNeverMuted) {
    // An event that lost its message has no title at all, not an empty one.
    TVKEventConfigurationManager::setMutedMessages(
        Array{tarvik_MD5Digest("noisy"), tarvik_MD5Digest("")});
    auto muted = makeEvent("noisy");
    auto untitled = TVKEventSubmission::create();
    untitled->saveEventSubmissionData({{"line_number", "3"}});
    muted->sendSubmission();
    untitled->sendSubmission();
    test.drain();
    EXPECT_EQ(submissionsSent().size(), 1u);
    EXPECT_FALSE(fs::exists(queuedFolderOf(*muted)));
}

TEST_F(SubmissionOperation, WhileEventsAreOffEventsAreDroppedAndPollingRestartsButIssuesGo) {
    auto configuration = TVKEventConfigurationManager::sharedInstance();
    ASSERT_FALSE(configuration->hasTimer());  // the service said "enabled" at start
    setConfigurationAnswer(R"({"enabled": false})");
    auto event = makeEvent();
    TVKSettingsManager::setEventSubmissionEnabled(false);  // switched off after it was recorded

    event->sendSubmission();
    test.drain();
    EXPECT_TRUE(submissionsSent().empty());
    EXPECT_FALSE(fs::exists(queuedFolderOf(*event)));
    EXPECT_TRUE(configuration->hasTimer());

    TVKIssueSubmission::create()->sendSubmission();
    test.drain();
    EXPECT_EQ(submissionsSent().size(), 1u);
}

// An operation counts as running until its answer is handled, so sends never overlap and
// leave in the order they were queued.
TEST_F(SubmissionOperation, SendsOneAtATimeInQueueOrder) {
    std::atomic<int> inFlight{0};
    std::atomic<int> mostInFlight{0};
    setSubmissionAnswer([&] {
        int now = ++inFlight;
        mostInFlight = std::max(mostInFlight.load(), now);
        std::this_thread::yield();
        --inFlight;
        return HttpResult::answer(200);
    });
    std::vector<std::shared_ptr<TVKEventSubmission>> events;
    for (int i = 0; i < 8; ++i) {
        events.push_back(makeEvent("event " + std::to_string(i)));
        events.back()->sendSubmission();
    }
    test.drain();
    auto sent = submissionsSent();
    ASSERT_EQ(sent.size(), 8u);
    EXPECT_EQ(mostInFlight.load(), 1);
    for (int i = 0; i < 8; ++i) {
        EXPECT_THAT(sent[i].body, HasSubstr("\r\n\r\nevent " + std::to_string(i) + "\r\n"));
    }
}

class SubmissionOperationInDebug : public DeliveryTest {
  protected:
    SubmissionOperationInDebug() : DeliveryTest(true) {}
};

TEST_F(SubmissionOperationInDebug, KeepsAnsweredSubmissionsInSentAndExplainsWhy) {
    auto accepted = makeEvent();
    accepted->sendSubmission();
    test.drain();
    EXPECT_TRUE(fs::exists(*accepted->submissionFolderPathForStatus(TVKSubmissionStatusSent)));

    setSubmissionAnswer([] { return HttpResult::answer(400); });
    makeEvent()->sendSubmission();
    test.drain();
    setSubmissionAnswer([] { return HttpResult::noResponse("timed out"); });
    makeEvent()->sendSubmission();
    test.drain();
    // A bare JSON value is not a document.
    setSubmissionAnswer([] { return answerWithBody(200, "\"ok\""); });
    makeEvent()->sendSubmission();
    test.drain();
    auto lines = test.consoleLines();
    EXPECT_THAT(lines, Contains("Error while trying to decode JSON data"));
    EXPECT_THAT(lines, Contains("Error -- received message from backend about malformed request, "
                                "removing submission..."));
    EXPECT_THAT(lines, Contains("Error -- received error while trying to post submission to "
                                "backend server: timed out"));
}

}  // namespace
}  // namespace tarvik
