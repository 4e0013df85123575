#include <tarvik/Tarvik.h>
#include <tarvik/TarvikConstants.h>

#include "Helpers/NSString+Tarvik.h"
#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKEventConfigurationManager.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <thread>
#include <vector>

namespace tarvik {
namespace {

using ::testing::ElementsAre;
using testing::FakeDevice;
using testing::FakeHttpTransport;
using ::testing::IsEmpty;
using testing::TestRuntime;
using testsupport::runPython;
using testsupport::shellQuoted;

using Manager = TVKEventConfigurationManager;

HttpResult jsonAnswer(long status, const std::string& text) {
    return HttpResult::answer(status, Data(text.begin(), text.end()));
}

// Upper-case MD5 digests of each text's UTF-8 bytes, computed by Python's hashlib.
std::map<std::string, std::string> md5DigestsByPython(const std::vector<std::string>& texts) {
    std::string arguments;
    for (const std::string& text : texts) {
        arguments += shellQuoted(text) + " ";
    }
    auto python = runPython(R"(import hashlib, os, sys
for text in sys.argv[1:]:
    print(hashlib.md5(os.fsencode(text)).hexdigest().upper())
)",
                            arguments);
    EXPECT_EQ(python.exitCode, 0) << python.output;
    std::map<std::string, std::string> digests;
    std::size_t start = 0;
    for (const std::string& text : texts) {
        std::size_t end = python.output.find('\n', start);
        digests[text] = python.output.substr(start, end - start);
        start = end + 1;
    }
    return digests;
}

class EventConfigurationTest : public ::testing::Test {
  protected:
    EventConfigurationTest()
        : transport(rt.platform().fakeHttpTransport()), device(rt.platform().fakeDevice()) {
        Tarvik::sharedInstance().setApiKey("app-key-123");
        // A new installation starts with the feature on; most tests need it off, to poll.
        std::filesystem::create_directories(TVKDirectoryLayout::settingsFolderPath());
        TVKSettingsManager::setEventSubmissionEnabled(false);
    }
    ~EventConfigurationTest() override { TarvikDomainName = savedDomainName; }

    static std::shared_ptr<Manager> manager() { return Manager::sharedInstance(); }
    bool consoleHas(const std::string& line) const {
        auto lines = rt.consoleLines();
        return std::count(lines.begin(), lines.end(), line) == 1;
    }

    TestRuntime rt;
    FakeHttpTransport& transport;
    FakeDevice& device;
    std::string savedDomainName = TarvikDomainName;
};

using EventConfigPolling = EventConfigurationTest;

TEST_F(EventConfigPolling, FetchesAtOnceThenEveryInterval) {
    Manager::startTimer();
    EXPECT_TRUE(manager()->hasTimer());
    rt.advance(0);
    EXPECT_EQ(transport.requestCount(), 1u);
    rt.advance(899);
    EXPECT_EQ(transport.requestCount(), 1u);
    rt.advance(1);
    EXPECT_EQ(transport.requestCount(), 2u);

    // A running timer is kept as it is.
    Manager::startTimer();
    rt.advance(0);
    EXPECT_EQ(transport.requestCount(), 2u);
}

TEST_F(EventConfigPolling, FeatureOnAtStartStopsAtTheFirstFiringWithoutARequest) {
    TVKSettingsManager::setEventSubmissionEnabled(true);
    Manager::startTimer();
    EXPECT_TRUE(manager()->hasTimer());
    rt.advance(0);
    EXPECT_FALSE(manager()->hasTimer());
    rt.advance(3600);
    EXPECT_EQ(transport.requestCount(), 0u);
}

TEST_F(EventConfigPolling, AnEnabledAnswerStoresTheFlagAndEndsPolling) {
    transport.enqueue(jsonAnswer(200, R"({"enabled": true})"));
    Manager::startTimer();
    rt.advance(0);
    EXPECT_TRUE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_FALSE(manager()->hasTimer());
    rt.advance(10000);
    EXPECT_EQ(transport.requestCount(), 1u);

    // A dropped event starts polling again, and the still-enabled flag ends it at once.
    Manager::startTimer();
    rt.advance(0);
    EXPECT_FALSE(manager()->hasTimer());
    EXPECT_EQ(transport.requestCount(), 1u);
}

TEST_F(EventConfigPolling, ResettingTheTimerIsReportedInDebugMode) {
    Tarvik::sharedInstance().setDebug(true);
    Manager::setInterval(1000.5);
    EXPECT_TRUE(
        consoleHas("Resetting the event configuration timer. Will wait 1000.500000 seconds"));
}

using EventConfigInterval = EventConfigurationTest;

TEST_F(EventConfigInterval, IsNeverBelowTheMinimumAndRestartsOnlyWhenChanged) {
    transport.setResponder([](const HttpRequest&) { return HttpResult::answer(503); });
    EXPECT_EQ(manager()->minimumSeconds(), 900.0);
    EXPECT_EQ(manager()->intervalSeconds(), 900.0);
    Manager::setInterval(5);
    EXPECT_EQ(manager()->intervalSeconds(), 900.0);
    EXPECT_FALSE(manager()->hasTimer());

    Manager::setInterval(1200);
    EXPECT_EQ(manager()->intervalSeconds(), 1200.0);
    EXPECT_TRUE(manager()->hasTimer());
    rt.advance(0);
    EXPECT_EQ(transport.requestCount(), 1u);

    Manager::setInterval(1200);
    rt.advance(0);
    EXPECT_EQ(transport.requestCount(), 1u);
}

TEST_F(EventConfigInterval, FiveMinutesAreRaisedToTheMinimum) {
    transport.setResponder(
        [](const HttpRequest&) { return jsonAnswer(200, R"({"check_interval": 5})"); });
    Manager::startTimer();
    rt.advance(0);
    EXPECT_EQ(manager()->intervalSeconds(), 900.0);
    EXPECT_EQ(transport.requestCount(), 1u);
    rt.advance(899);
    EXPECT_EQ(transport.requestCount(), 1u);
    rt.advance(1);
    EXPECT_EQ(transport.requestCount(), 2u);
}

TEST_F(EventConfigInterval, ThirtyMinutesRestartTheTimerWithAnImmediateFetch) {
    transport.setResponder(
        [](const HttpRequest&) { return jsonAnswer(200, R"({"check_interval": 30})"); });
    Manager::startTimer();
    rt.advance(0);
    EXPECT_EQ(manager()->intervalSeconds(), 1800.0);
    EXPECT_EQ(transport.requestCount(), 2u);
    rt.advance(1799);
    EXPECT_EQ(transport.requestCount(), 2u);
    rt.advance(1);
    EXPECT_EQ(transport.requestCount(), 3u);
}

TEST_F(EventConfigInterval, MinutesBecomeSecondsInSinglePrecision) {
    // 16.7f × 60 is 1002.0000610351562 in single precision; in double precision it is 1002.
    transport.setResponder(
        [](const HttpRequest&) { return jsonAnswer(200, R"({"check_interval": 16.7})"); });
    Manager::startTimer();
    rt.advance(0);
    EXPECT_EQ(manager()->intervalSeconds(), 1002.0000610351562);
}

using EventConfigRequest = EventConfigurationTest;

TEST_F(EventConfigRequest, IsAGetOfTheConfigurationWithEncodedQueryAndDeviceHeaders) {
    TarvikDomainName = "127.0.0.1:8443";
    const std::string appName = "Mÿ Høst & Co+ =1/2?";
    rt.platform().setMainBundleInfo({{"CFBundleIdentifier", "com.example.host"},
                                     {"CFBundleName", appName},
                                     {"CFBundleShortVersionString", "2.5"},
                                     {"CFBundleVersion", "250"}});
    Manager::startTimer();
    rt.advance(0);
    auto exchanges = transport.exchanges();
    ASSERT_EQ(exchanges.size(), 1u);
    const HttpRequest& request = exchanges[0].request;
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.cachePolicy, 1);
    EXPECT_EQ(request.timeoutInterval, 60.0);
    EXPECT_FALSE(request.bodyFilePath);
    EXPECT_THAT(
        request.headers,
        ElementsAre(std::pair<std::string, std::string>("X-Tarvik-Api-Key", "app-key-123"),
                    std::pair<std::string, std::string>("X-Tarvik-Device-Type", "ios"),
                    std::pair<std::string, std::string>("X-Tarvik-Device-Identifier",
                                                        FakeDevice::kDefaultIdentifierForVendor),
                    std::pair<std::string, std::string>("X-Tarvik-Device-Name", "Test Device")));

    // Python's URL parser (which reads "+" as a space) must find the names as they are.
    auto python = runPython(R"(import json, sys, urllib.parse
url = urllib.parse.urlsplit(sys.argv[1])
print(json.dumps([url.scheme, url.netloc, url.path,
                  urllib.parse.parse_qsl(url.query, keep_blank_values=True, strict_parsing=True)]))
)",
                            shellQuoted(request.url));
    ASSERT_EQ(python.exitCode, 0) << python.output;
    nlohmann::json expected = {
        "https", "127.0.0.1:8443", "/v1/event/config.json",
        nlohmann::json::array({nlohmann::json::array({"app_bundle_identifier", "com.example.host"}),
                               nlohmann::json::array({"app_name", appName})})};
    EXPECT_EQ(nlohmann::json::parse(python.output), expected) << request.url;
}

TEST_F(EventConfigRequest, LeavesOutTheKeyAndIdentifierThatAreUnavailable) {
    Tarvik::sharedInstance().setApiKey(std::nullopt);
    device.setIdentifierForVendor("");
    HttpRequest request = manager()->buildRequest("https://host.test/path");
    EXPECT_EQ(request.url, "https://host.test/path");
    EXPECT_THAT(
        request.headers,
        ElementsAre(std::pair<std::string, std::string>("X-Tarvik-Device-Type", "ios"),
                    std::pair<std::string, std::string>("X-Tarvik-Device-Name", "Test Device")));
}

using EventConfigDocument = EventConfigurationTest;

TEST_F(EventConfigDocument, AMissingEnabledKeyTurnsTheFeatureOff) {
    // The flag is switched on while the fetch is under way (as a submission answer may do);
    // the fetched document without "enabled" then switches it off again.
    transport.setResponder([](const HttpRequest&) {
        TVKSettingsManager::setEventSubmissionEnabled(true);
        return jsonAnswer(200, R"({"check_interval": 15})");
    });
    Manager::startTimer();
    rt.advance(0);
    EXPECT_EQ(transport.requestCount(), 1u);
    EXPECT_FALSE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_TRUE(manager()->hasTimer());
}

TEST_F(EventConfigDocument, AnUndecodableAnswerReadsAsAnEmptyDocument) {
    Tarvik::sharedInstance().setDebug(true);
    transport.setResponder([](const HttpRequest&) { return HttpResult::answer(500); });
    transport.enqueue(
        jsonAnswer(200, R"({"check_interval": 30, "ignored": {"messages": ["AA"]}})"));
    transport.enqueue(jsonAnswer(200, "not json {"));
    Manager::startTimer();
    rt.advance(0);
    // 30 minutes restart the timer; the undecodable answer to that fetch brings the interval
    // back to 900 s (another restart, answered with 500); the lists stay.
    EXPECT_EQ(transport.requestCount(), 3u);
    EXPECT_EQ(manager()->intervalSeconds(), 900.0);
    EXPECT_THAT(manager()->mutedMessages(), ElementsAre("AA"));
    EXPECT_FALSE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_TRUE(consoleHas("Error while trying to decode JSON data"));
}

TEST_F(EventConfigDocument, OtherStatusesAndMissingAnswersChangeNothing) {
    Tarvik::sharedInstance().setDebug(true);
    transport.setResponder([](const HttpRequest&) {
        return jsonAnswer(200, R"({"check_interval": 30, "ignored": {"messages": ["M"],
            "apps": ["A"], "versions": ["V"], "devices": ["D"]}})");
    });
    Manager::startTimer();
    rt.advance(0);
    ASSERT_EQ(transport.requestCount(), 2u);

    const std::string everythingElse = R"({"enabled": true, "check_interval": 60, "ignored": {}})";
    transport.enqueue(jsonAnswer(500, everythingElse));
    transport.enqueue(jsonAnswer(201, everythingElse));
    transport.enqueue(HttpResult::noResponse("connection refused"));
    for (std::size_t fetch = 3; fetch <= 5; ++fetch) {
        rt.advance(1800);
        ASSERT_EQ(transport.requestCount(), fetch);
        EXPECT_FALSE(TVKSettingsManager::eventSubmissionEnabled());
        EXPECT_EQ(manager()->intervalSeconds(), 1800.0);
        EXPECT_TRUE(manager()->hasTimer());
        EXPECT_THAT(manager()->mutedMessages(), ElementsAre("M"));
        EXPECT_THAT(manager()->mutedApplications(), ElementsAre("A"));
        EXPECT_THAT(manager()->mutedApplicationVersions(), ElementsAre("V"));
        EXPECT_THAT(manager()->mutedDevices(), ElementsAre("D"));
    }
    EXPECT_TRUE(
        consoleHas("Error while trying to check event feature configuration: "
                   "connection refused"));
    auto lines = rt.consoleLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Error while trying to decode JSON data"), 0);
}

TEST_F(EventConfigDocument, IgnoredMembersReplaceTheListsAndMissingOnesEmptyThem) {
    transport.enqueue(jsonAnswer(200, R"({"ignored": {"messages": ["M1", 7, null, "M2"],
        "apps": ["A1"], "versions": ["V1"], "devices": ["D1", {"x": 1}]}})"));
    transport.enqueue(jsonAnswer(200, R"({"ignored": {"messages": ["M3"], "apps": "A2"}})"));
    transport.enqueue(jsonAnswer(200, R"({"check_interval": 15})"));
    Manager::startTimer();
    rt.advance(0);
    EXPECT_THAT(manager()->mutedMessages(), ElementsAre("M1", "M2"));
    EXPECT_THAT(manager()->mutedApplications(), ElementsAre("A1"));
    EXPECT_THAT(manager()->mutedApplicationVersions(), ElementsAre("V1"));
    EXPECT_THAT(manager()->mutedDevices(), ElementsAre("D1"));

    rt.advance(900);
    EXPECT_THAT(manager()->mutedMessages(), ElementsAre("M3"));
    EXPECT_THAT(manager()->mutedApplications(), IsEmpty());
    EXPECT_THAT(manager()->mutedApplicationVersions(), IsEmpty());
    EXPECT_THAT(manager()->mutedDevices(), IsEmpty());

    // A document without "ignored" keeps the lists.
    rt.advance(900);
    EXPECT_EQ(transport.requestCount(), 3u);
    EXPECT_THAT(manager()->mutedMessages(), ElementsAre("M3"));
}

TEST_F(EventConfigDocument, SettersKeepStringsAndEmptyOnAMissingList) {
    Manager::setMutedDevices(Array{"D1", 2, "D2"});
    EXPECT_THAT(manager()->mutedDevices(), ElementsAre("D1", "D2"));
    Manager::setMutedDevices(std::nullopt);
    EXPECT_THAT(manager()->mutedDevices(), IsEmpty());
}

class EventConfigDecision : public EventConfigurationTest {
  protected:
    static constexpr const char* kTitle = "Checkout failed";
    static constexpr const char* kAppVersion = "com.example.host:2.5-250";

    EventConfigDecision() { TVKSettingsManager::setEventSubmissionEnabled(true); }

    static std::string digestOf(const std::string& text) {
        static const std::map<std::string, std::string> digests = md5DigestsByPython(
            {kTitle, "com.example.host", kAppVersion, "com.example.host:2.5-",
             "com.example.host:2.5-(null)", FakeDevice::kDefaultIdentifierForVendor, ""});
        return digests.at(text);
    }
    static bool shouldUpload(const std::string& title = kTitle) {
        return Manager::shouldUploadDataForEventTitle(title);
    }
};

TEST_F(EventConfigDecision, DigestsFromPythonAgreeWithAKnownValue) {
    EXPECT_EQ(digestOf(""), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST_F(EventConfigDecision, TheFeatureFlagComesFirst) {
    EXPECT_TRUE(shouldUpload());
    TVKSettingsManager::setEventSubmissionEnabled(false);
    EXPECT_FALSE(shouldUpload());
}

TEST_F(EventConfigDecision, EachListMutesByItsOwnDigest) {
    Manager::setMutedMessages(Array{digestOf(kTitle)});
    EXPECT_FALSE(shouldUpload());
    EXPECT_TRUE(shouldUpload("Another event"));
    Manager::setMutedMessages(std::nullopt);

    Manager::setMutedApplications(Array{digestOf("com.example.host")});
    EXPECT_FALSE(shouldUpload());
    EXPECT_FALSE(shouldUpload("Another event"));
    Manager::setMutedApplications(std::nullopt);

    Manager::setMutedApplicationVersions(Array{digestOf(kAppVersion)});
    EXPECT_FALSE(shouldUpload());
    Manager::setMutedApplicationVersions(std::nullopt);

    Manager::setMutedDevices(Array{digestOf(FakeDevice::kDefaultIdentifierForVendor)});
    EXPECT_FALSE(shouldUpload());
    Manager::setMutedDevices(std::nullopt);

    EXPECT_TRUE(shouldUpload());
}

TEST_F(EventConfigDecision, ListsOfOtherKindsDoNotMatch) {
    // Each digest put in a list meant for another kind of value.
    Manager::setMutedMessages(Array{digestOf("com.example.host")});
    Manager::setMutedApplications(Array{digestOf(kTitle)});
    Manager::setMutedApplicationVersions(Array{digestOf(FakeDevice::kDefaultIdentifierForVendor)});
    Manager::setMutedDevices(Array{digestOf(kAppVersion)});
    EXPECT_TRUE(shouldUpload());
}

TEST_F(EventConfigDecision, TitlesAndDigestsMatchExactly) {
    std::string lowerCaseDigest = digestOf(kTitle);
    std::transform(lowerCaseDigest.begin(), lowerCaseDigest.end(), lowerCaseDigest.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    Manager::setMutedMessages(Array{digestOf(kTitle)});
    EXPECT_TRUE(shouldUpload("checkout failed"));
    EXPECT_TRUE(shouldUpload("Checkout failed "));
    Manager::setMutedMessages(Array{lowerCaseDigest});
    EXPECT_TRUE(shouldUpload());
}

TEST_F(EventConfigDecision, AnAppWithoutABuildNumberIsNeverMutedByVersion) {
    rt.platform().setMainBundleInfo(
        {{"CFBundleIdentifier", "com.example.host"}, {"CFBundleShortVersionString", "2.5"}});
    Manager::setMutedApplicationVersions(Array{digestOf(kAppVersion),
                                               digestOf("com.example.host:2.5-"),
                                               digestOf("com.example.host:2.5-(null)")});
    EXPECT_TRUE(shouldUpload());
}

TEST_F(EventConfigDecision, ADeviceWithoutAVendorIdentifierIsNeverMutedByDevice) {
    device.setIdentifierForVendor("");
    Manager::setMutedDevices(
        Array{digestOf(""), digestOf(FakeDevice::kDefaultIdentifierForVendor)});
    EXPECT_TRUE(shouldUpload());
}

TEST_F(EventConfigurationTest, ConcurrentResetsLeaveOneTimerAndDecisionsReadWholeLists) {
    transport.setResponder([](const HttpRequest&) { return HttpResult::answer(500); });
    TVKSettingsManager::setEventSubmissionEnabled(true);
    const std::string title = "Concurrent title";
    const Array muted{tarvik_MD5Digest(title)};
    std::atomic<int> wrongDecisions{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                if (t == 0) {
                    Manager::setMutedMessages(i % 2 ? muted : Array{"OTHER"});
                } else if (t == 1) {
                    Manager::setInterval(901 + i);
                } else if (Manager::shouldUploadDataForEventTitle("Unmuted title") != true) {
                    ++wrongDecisions;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrongDecisions.load(), 0);
    EXPECT_FALSE(Manager::shouldUploadDataForEventTitle(title));  // the last list set was `muted`
    EXPECT_EQ(manager()->intervalSeconds(), 1100.0);

    // Of all the timers made on the way, only the last one still fires.
    TVKSettingsManager::setEventSubmissionEnabled(false);
    rt.advance(0);
    EXPECT_EQ(transport.requestCount(), 1u);
    rt.advance(1100);
    EXPECT_EQ(transport.requestCount(), 2u);
}

}  // namespace
}  // namespace tarvik
