#include <tarvik/Tarvik.h>

#include "Helpers/NSString+Tarvik.h"
#include "Helpers/TVKEventConfigurationManager.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/TVKSubmissionOperation.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/JsonValue.h"
#include "support/DeliveryFixture.h"
#include "support/Files.h"
#include "support/TestCertificates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::HasSubstr;
using testsupport::DeliveryTest;
using testsupport::readFile;

Data bytesOf(const std::string& text) {
    return Data(text.begin(), text.end());
}

using SubmissionOperation = DeliveryTest;

TEST_F(SubmissionOperation, SendsTheSpooledBodyToTheEndpointAndRemovesOnSuccess) {
    auto event = makeEvent();
    event->sendSubmission();
    EXPECT_EQ(event->submissionStatus(), TVKSubmissionStatusQueued);
    test.drain();

    auto sent = submissionsSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].request.url, "https://collector.test/v1/event/save.json");
    EXPECT_EQ(sent[0].request.valueForHeader("X-Tarvik-Api-Key"), "key-123");
    EXPECT_EQ(sent[0].request.timeoutInterval, 60);
    EXPECT_THAT(sent[0].body, HasSubstr("name=\"message\"\r\n\r\npaid\r\n"));
    EXPECT_EQ(sent[0].request.valueForHeader("Content-Length"),
              std::to_string(sent[0].body.size()));
    EXPECT_FALSE(fs::exists(queuedFolderOf(*event)));
}

struct StatusCase {
    long status;
    bool removed;
    bool failureAnnounced;
};

void PrintTo(const StatusCase& statusCase, std::ostream* stream) {
    *stream << "HTTP " << statusCase.status;
}

class SubmissionOperationStatus : public DeliveryTest,
                                  public ::testing::WithParamInterface<StatusCase> {};

TEST_P(SubmissionOperationStatus, DecidesTheSubmissionsFate) {
    StatusCase expected = GetParam();
    setSubmissionAnswer([&] { return HttpResult::answer(expected.status); });
    std::atomic<int> failures{0};
    test.runtime().notificationCenter().addObserver(TarvikNotificationDidFailSubmission,
                                                    [&](const Notification&) { ++failures; });

    auto issue = TVKIssueSubmission::create();
    issue->sendSubmission();
    test.drain();

    EXPECT_EQ(fs::exists(queuedFolderOf(*issue)), !expected.removed);
    EXPECT_EQ(failures.load(), expected.failureAnnounced ? 1 : 0);
    // Failures get a retry time from the retry manager; final answers leave nothing behind.
    EXPECT_EQ(fs::exists(issue->retryDateFilePath()), expected.failureAnnounced);
}

INSTANTIATE_TEST_SUITE_P(
    AnswersFromTheService, SubmissionOperationStatus,
    ::testing::Values(StatusCase{200, true, false}, StatusCase{400, true, false},
                      StatusCase{401, true, false}, StatusCase{201, false, true},
                      StatusCase{204, false, true}, StatusCase{302, false, true},
                      StatusCase{404, false, true}, StatusCase{500, false, true},
                      StatusCase{503, false, true}),
    [](const auto& info) { return std::to_string(info.param.status); });

TEST_F(SubmissionOperation, NoResponseKeepsTheSubmissionWithoutAnnouncingAFailure) {
    setSubmissionAnswer([] { return HttpResult::noResponse("connection refused"); });
    std::atomic<int> failures{0};
    test.runtime().notificationCenter().addObserver(TarvikNotificationDidFailSubmission,
                                                    [&](const Notification&) { ++failures; });
    auto event = makeEvent();
    event->sendSubmission();
    test.drain();
    EXPECT_TRUE(fs::exists(queuedFolderOf(*event)));
    EXPECT_FALSE(fs::exists(event->retryDateFilePath()));
    EXPECT_EQ(failures.load(), 0);
}

TEST_F(SubmissionOperation, TheServersChainIsJudgedByTheTrustManager) {
    // The service's host is not pinned, so the ordinary verification decides.
    transport().presentServerTrust([](const std::string& host) -> std::optional<ServerTrust> {
        return testsupport::trustFor(testsupport::leafCertificateFor(host).get(), host);
    });
    auto trusted = makeEvent();
    trusted->sendSubmission();
    test.drain();
    EXPECT_EQ(submissionsSent().size(), 1u);
    EXPECT_FALSE(fs::exists(queuedFolderOf(*trusted)));

    transport().presentServerTrust([](const std::string& host) -> std::optional<ServerTrust> {
        std::vector<CertificateRef> chain;
        chain.push_back(retainCertificate(testsupport::selfSignedLeafCertificate()));
        return ServerTrust(std::move(chain), host);
    });
    auto refused = makeEvent();
    refused->sendSubmission();
    test.drain();
    EXPECT_EQ(submissionsSent().size(), 1u);
    EXPECT_TRUE(fs::exists(queuedFolderOf(*refused)));
    EXPECT_FALSE(fs::exists(refused->retryDateFilePath()));
}

TEST_F(SubmissionOperation, SuccessWithEventSettingsSwitchesEventsOffAndSetsTheInterval) {
    // The new interval restarts polling at once, and the service still says the same.
    setConfigurationAnswer(R"({"enabled": false, "check_interval": 30})");
    setSubmissionAnswer([] {
        return HttpResult::answer(200, bytesOf(R"({"event": {"enabled": false, "check_interval": 30,
                            "ignored": {"messages": ["ABC"], "apps": ["DEF"]}}})"));
    });
    makeEvent()->sendSubmission();
    test.drain();
    auto configuration = TVKEventConfigurationManager::sharedInstance();
    EXPECT_FALSE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_EQ(configuration->intervalSeconds(), 1800);
    EXPECT_THAT(configuration->mutedMessages(), Contains("ABC"));
    EXPECT_THAT(configuration->mutedApplications(), Contains("DEF"));
    EXPECT_TRUE(configuration->mutedDevices().empty());
}

TEST_F(SubmissionOperation, ShortIntervalIsRaisedAndEnabledLeavesTheIntervalAlone) {
    auto configuration = TVKEventConfigurationManager::sharedInstance();
    TVKSubmissionOperation::applyEventSettings(
        *json::parse(R"({"enabled": false, "check_interval": 5})"));
    EXPECT_FALSE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_EQ(configuration->intervalSeconds(), 900);

    TVKSubmissionOperation::applyEventSettings(
        *json::parse(R"({"enabled": true, "check_interval": 60})"));
    EXPECT_TRUE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_EQ(configuration->intervalSeconds(), 900);
}

TEST_F(SubmissionOperation, SuccessWhoseBodyIsNotJsonStillRemoves) {
    setSubmissionAnswer([] { return HttpResult::answer(200, bytesOf("<html>ok</html>")); });
    auto issue = TVKIssueSubmission::create();
    issue->sendSubmission();
    test.drain();
    EXPECT_FALSE(fs::exists(queuedFolderOf(*issue)));
    EXPECT_TRUE(TVKSettingsManager::eventSubmissionEnabled());
}

TEST_F(SubmissionOperation, MutedEventIsRemovedUnsent) {
    auto event = makeEvent("noisy");
    TVKEventConfigurationManager::setMutedMessages(Array{tarvik_MD5Digest("noisy")});
    event->sendSubmission();
    test.drain();
    EXPECT_TRUE(submissionsSent().empty());
    EXPECT_FALSE(fs::exists(queuedFolderOf(*event)));
}

TEST_F(SubmissionOperation, AnEventDroppedWhileEventsAreOffRestartsPolling) {
    auto configuration = TVKEventConfigurationManager::sharedInstance();
    ASSERT_FALSE(configuration->hasTimer());  // the service said "enabled" at start
    std::size_t fetches = configurationRequestCount();
    setConfigurationAnswer(R"({"enabled": false})");
    auto event = makeEvent();
    TVKSettingsManager::setEventSubmissionEnabled(false);  // switched off after it was recorded

    event->sendSubmission();
    test.drain();
    EXPECT_TRUE(submissionsSent().empty());
    EXPECT_FALSE(fs::exists(queuedFolderOf(*event)));
    EXPECT_TRUE(configuration->hasTimer());
    EXPECT_EQ(configurationRequestCount(), fetches + 1);
}

TEST_F(SubmissionOperation, AnEventThatLostItsMessageIsNotMutedAsAnEmptyTitle) {
    TVKEventConfigurationManager::setMutedMessages(Array{tarvik_MD5Digest("")});
    auto event = TVKEventSubmission::create();
    event->saveEventSubmissionData({{"line_number", "3"}});
    event->sendSubmission();
    test.drain();
    EXPECT_EQ(submissionsSent().size(), 1u);
}

TEST_F(SubmissionOperation, OnlyTheEventKindIsMuted) {
    TVKSettingsManager::setEventSubmissionEnabled(false);
    auto issue = TVKIssueSubmission::create();
    issue->sendSubmission();
    test.drain();
    EXPECT_EQ(submissionsSent().size(), 1u);
}

TEST_F(SubmissionOperation, SendsOneAtATime) {
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
    // In the order they were queued.
    for (int i = 0; i < 8; ++i) {
        EXPECT_THAT(sent[i].body, HasSubstr("\r\n\r\nevent " + std::to_string(i) + "\r\n"));
    }
}

TEST_F(SubmissionOperation, ACancelledOperationFinishesWithoutSending) {
    auto operation = std::make_shared<TVKSubmissionOperation>(makeEvent());
    operation->cancel();
    std::atomic<bool> finished{false};
    operation->start([&] { finished = true; });
    EXPECT_TRUE(finished.load());
    EXPECT_TRUE(operation->isFinished());
    EXPECT_FALSE(operation->isExecuting());
    test.drain();
    EXPECT_TRUE(submissionsSent().empty());
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
    setSubmissionAnswer([] { return HttpResult::answer(200, bytesOf("\"ok\"")); });
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
