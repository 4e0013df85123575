#include <tarvik/Tarvik.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKEventConfigurationManager.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/DeliveryFixture.h"
#include "support/ExternalTools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <vector>

namespace tarvik {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using testing::FakeDevice;
using ::testing::IsEmpty;
using testsupport::answerWithBody;

using Manager = TVKEventConfigurationManager;
using Headers = std::vector<std::pair<std::string, std::string>>;

// The upper-case MD5 digest of the text's UTF-8 bytes, computed by Python's hashlib.
std::string md5ByPython(const std::string& text) {
    auto python = testsupport::runPython(
        "import hashlib, sys\nprint(hashlib.md5(sys.argv[1].encode()).hexdigest().upper())",
        testsupport::shellQuoted(text));
    EXPECT_EQ(python.exitCode, 0) << python.output;
    return python.output.substr(0, 32);
}

// An SDK that is not started, so that each test drives the configuration timer itself.
class EventConfigurationTest : public ::testing::Test {
  protected:
    EventConfigurationTest() {
        Tarvik::sharedInstance().setApiKey("app-key-123");
        // A new installation starts with the feature on; most tests need it off, to poll.
        std::filesystem::create_directories(TVKDirectoryLayout::settingsFolderPath());
        TVKSettingsManager::setEventSubmissionEnabled(false);
    }
    ~EventConfigurationTest() override { TarvikDomainName = savedDomainName; }

    static std::shared_ptr<Manager> manager() { return Manager::sharedInstance(); }
    std::size_t requests() const { return transport.requestCount(); }

    testing::TestRuntime rt;
    testing::FakeHttpTransport& transport = rt.platform().fakeHttpTransport();
    std::string savedDomainName = TarvikDomainName;
};

using EventConfigPolling = EventConfigurationTest;

TEST_F(EventConfigPolling, AnEnabledAnswerStoresTheFlagAndEndsPolling) {
    transport.enqueue(answerWithBody(200, R"({"enabled": true})"));
    Manager::startTimer();
    rt.advance(0);
    EXPECT_TRUE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_FALSE(manager()->hasTimer());
    rt.advance(10000);
    EXPECT_EQ(requests(), 1u);

    // A dropped event starts polling again, and the still-enabled flag ends it at once.
    Manager::startTimer();
    rt.advance(0);
    EXPECT_FALSE(manager()->hasTimer());
    EXPECT_EQ(requests(), 1u);
}

TEST_F(EventConfigPolling, ResettingTheTimerIsReportedInDebugMode) {
    Tarvik::sharedInstance().setDebug(true);
    Manager::setInterval(1000.5);
    EXPECT_THAT(rt.consoleLines(),
                Contains("Resetting the event configuration timer. Will wait 1000.500000 seconds"));
}

struct IntervalCase {
    std::string minutes;  // as the service writes them
    double seconds;
    std::size_t fetchesAtOnce;  // 2 when the changed interval restarted the timer
};

void PrintTo(const IntervalCase& intervalCase, std::ostream* stream) {
    *stream << intervalCase.minutes << " minutes";
}

class EventConfigInterval : public EventConfigurationTest,
                            public ::testing::WithParamInterface<IntervalCase> {};

TEST_P(EventConfigInterval, FollowsTheServicesMinutesButNeverGoesBelowTheMinimum) {
    IntervalCase expected = GetParam();
    transport.setResponder([&](const HttpRequest&) {
        return answerWithBody(200, R"({"check_interval": )" + expected.minutes + "}");
    });
    Manager::startTimer();
    rt.advance(0);
    EXPECT_EQ(manager()->intervalSeconds(), expected.seconds);
    EXPECT_EQ(requests(), expected.fetchesAtOnce);
    rt.advance(std::ceil(expected.seconds) - 1);
    EXPECT_EQ(requests(), expected.fetchesAtOnce);
    rt.advance(1);
    EXPECT_EQ(requests(), expected.fetchesAtOnce + 1);

    // Starting a running timer keeps it as it is.
    Manager::startTimer();
    rt.advance(0);
    EXPECT_EQ(requests(), expected.fetchesAtOnce + 1);
}

// 15 minutes are the minimum and the interval at start. The service's number is converted in
// single precision: 16.7f × 60 is 1002.0000610351562.
// More than a day (1e300 is infinite in single precision) is lowered to a day.
INSTANTIATE_TEST_SUITE_P(CheckIntervals, EventConfigInterval,
                         ::testing::Values(IntervalCase{"5", 900.0, 1},
                                           IntervalCase{"30", 1800.0, 2},
                                           IntervalCase{"16.7", 1002.0000610351562, 2},
                                           IntervalCase{"1441", 86400.0, 2},
                                           IntervalCase{"1e300", 86400.0, 2}));

TEST_F(EventConfigPolling, AnIntervalThatIsNotANumberCountsAsTheMinimum) {
    Manager::setInterval(1800);
    Manager::setInterval(std::nan(""));
    EXPECT_EQ(manager()->intervalSeconds(), 900.0);
}

// Answers that change the interval every time restart the timer every time, and each restart
// fetches at once. After a first burst of two, the fetches come at most once a minute.
TEST_F(EventConfigPolling, AnswersThatKeepChangingTheIntervalFetchAtMostOnceAMinute) {
    transport.setResponder([this](const HttpRequest&) {
        // Bounded, so that an SDK without the limit ends the test instead of looping.
        if (requests() > 500) {
            return HttpResult::answer(500);
        }
        return answerWithBody(
            200, requests() % 2 ? R"({"check_interval": 30})" : R"({"check_interval": 15})");
    });
    Manager::startTimer();
    rt.advance(0);
    EXPECT_EQ(requests(), 2u);
    rt.advance(3600);
    EXPECT_EQ(requests(), 62u);

    // Once the answers settle, the service's interval holds again.
    transport.setResponder(
        [](const HttpRequest&) { return answerWithBody(200, R"({"check_interval": 30})"); });
    rt.advance(60);
    std::size_t settled = requests();
    rt.advance(1800 * 3);
    EXPECT_EQ(requests(), settled + 3);
}

TEST_F(EventConfigurationTest, TheRequestIsAGetWithTheNamesPercentEncodedAndDeviceHeaders) {
    TarvikDomainName = "127.0.0.1:8443";
    rt.platform().setMainBundleInfo(
        {{"CFBundleIdentifier", "com.example.host"}, {"CFBundleName", "Mÿ Høst & Co+ =1/2?"}});
    Manager::startTimer();
    rt.advance(0);
    auto exchanges = transport.exchanges();
    ASSERT_EQ(exchanges.size(), 1u);
    const HttpRequest& request = exchanges[0].request;
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.timeoutInterval, 60.0);
    // Everything but letters, digits and "-._~" is encoded, "+" and spaces included.
    EXPECT_EQ(request.url,
              "https://127.0.0.1:8443/v1/event/config.json?app_bundle_identifier=com.example.host"
              "&app_name=M%C3%BF%20H%C3%B8st%20%26%20Co%2B%20%3D1%2F2%3F");
    EXPECT_EQ(request.headers,
              (Headers{{"X-Tarvik-Api-Key", "app-key-123"},
                       {"X-Tarvik-Device-Type", "ios"},
                       {"X-Tarvik-Device-Identifier", FakeDevice::kDefaultIdentifierForVendor},
                       {"X-Tarvik-Device-Name", "Test Device"}}));

    // A key or vendor identifier that is unavailable leaves its header out.
    Tarvik::sharedInstance().setApiKey(std::nullopt);
    rt.platform().fakeDevice().setIdentifierForVendor("");
    EXPECT_EQ(manager()->buildRequest("https://host.test/path").headers,
              (Headers{{"X-Tarvik-Device-Type", "ios"}, {"X-Tarvik-Device-Name", "Test Device"}}));
}

using EventConfigDocument = EventConfigurationTest;

TEST_F(EventConfigDocument, AMissingEnabledKeyTurnsTheFeatureOff) {
    // The flag is switched on while the fetch is under way (as a submission answer may do);
    // the fetched document without "enabled" then switches it off again.
    transport.setResponder([](const HttpRequest&) {
        TVKSettingsManager::setEventSubmissionEnabled(true);
        return answerWithBody(200, R"({"check_interval": 15})");
    });
    Manager::startTimer();
    rt.advance(0);
    EXPECT_FALSE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_TRUE(manager()->hasTimer());
}

TEST_F(EventConfigDocument, OnlyA200AnswerIsReadAndAnUndecodableOneReadsAsEmpty) {
    Tarvik::sharedInstance().setDebug(true);
    const std::string first = R"({"check_interval": 30, "ignored": {"messages": ["M"]}})";
    transport.enqueue(answerWithBody(200, first));
    transport.enqueue(answerWithBody(200, first));  // to the fetch of the restarted timer
    transport.setResponder([](const HttpRequest&) { return HttpResult::answer(500); });
    Manager::startTimer();
    rt.advance(0);
    ASSERT_EQ(manager()->intervalSeconds(), 1800.0);

    const std::string everythingElse = R"({"enabled": true, "check_interval": 60, "ignored": {}})";
    struct Fetch {
        HttpResult answer;
        double interval;
    };
    // An undecodable document reads as one without members: the interval falls back to 900 s.
    for (const auto& [answer, interval] :
         std::vector<Fetch>{{answerWithBody(500, everythingElse), 1800.0},
                            {answerWithBody(201, everythingElse), 1800.0},
                            {HttpResult::noResponse("connection refused"), 1800.0},
                            {answerWithBody(200, "not json {"), 900.0}}) {
        transport.enqueue(answer);
        rt.advance(1800);
        EXPECT_FALSE(TVKSettingsManager::eventSubmissionEnabled());
        EXPECT_EQ(manager()->intervalSeconds(), interval);
        EXPECT_THAT(manager()->mutedMessages(), ElementsAre("M"));
    }
    auto lines = rt.consoleLines();
    EXPECT_THAT(lines, Contains("Error while trying to check event feature configuration: "
                                "connection refused"));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Error while trying to decode JSON data"), 1);
}

TEST_F(EventConfigDocument, IgnoredMembersReplaceTheListsAndMissingOnesEmptyThem) {
    transport.enqueue(answerWithBody(200, R"({"ignored": {"messages": ["M1", 7, null, "M2"],
        "apps": ["A1"], "versions": ["V1"], "devices": ["D1", {"x": 1}]}})"));
    transport.enqueue(answerWithBody(200, R"({"ignored": {"messages": ["M3"], "apps": "A2"}})"));
    transport.enqueue(answerWithBody(200, R"({"check_interval": 15})"));
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
    EXPECT_EQ(requests(), 3u);
    EXPECT_THAT(manager()->mutedMessages(), ElementsAre("M3"));
}

// Whether an event is sent, with the feature on, from the app "com.example.host" 2.5 (250).
class EventConfigDecision : public EventConfigurationTest {
  protected:
    static constexpr const char* kTitle = "Checkout failed";
    static constexpr const char* kApp = "com.example.host";
    static constexpr const char* kAppVersion = "com.example.host:2.5-250";
    static constexpr const char* kDevice = FakeDevice::kDefaultIdentifierForVendor;

    EventConfigDecision() {
        TVKSettingsManager::setEventSubmissionEnabled(true);
        rt.platform().setMainBundleInfo({{"CFBundleIdentifier", kApp},
                                         {"CFBundleShortVersionString", "2.5"},
                                         {"CFBundleVersion", "250"}});
    }

    static bool shouldUpload(const std::string& title = kTitle) {
        return Manager::shouldUploadDataForEventTitle(title);
    }
};

TEST_F(EventConfigDecision, EachListMutesByTheDigestOfItsOwnValueOnly) {
    struct List {
        void (*set)(const std::optional<Array>&);
        std::string digest;
    };
    const std::vector<List> lists = {
        {Manager::setMutedMessages, md5ByPython(kTitle)},
        {Manager::setMutedApplications, md5ByPython(kApp)},
        {Manager::setMutedApplicationVersions, md5ByPython(kAppVersion)},
        {Manager::setMutedDevices, md5ByPython(kDevice)}};
    EXPECT_TRUE(shouldUpload());
    for (std::size_t list = 0; list < lists.size(); ++list) {
        for (std::size_t value = 0; value < lists.size(); ++value) {
            SCOPED_TRACE(::testing::Message() << "list " << list << ", digest " << value);
            lists[list].set(Array{lists[value].digest});
            EXPECT_EQ(shouldUpload(), list != value);
        }
        lists[list].set(std::nullopt);
    }
    // The feature flag comes first.
    TVKSettingsManager::setEventSubmissionEnabled(false);
    EXPECT_FALSE(shouldUpload());
}

TEST_F(EventConfigDecision, TitlesAndDigestsMatchExactly) {
    std::string digest = md5ByPython(kTitle);
    Manager::setMutedMessages(Array{digest});
    EXPECT_TRUE(shouldUpload("checkout failed"));
    EXPECT_TRUE(shouldUpload("Checkout failed "));
    std::transform(digest.begin(), digest.end(), digest.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    Manager::setMutedMessages(Array{digest});
    EXPECT_TRUE(shouldUpload());
}

TEST_F(EventConfigDecision, AMissingBuildNumberOrVendorIdentifierIsNeverMuted) {
    rt.platform().setMainBundleInfo(
        {{"CFBundleIdentifier", kApp}, {"CFBundleShortVersionString", "2.5"}});
    Manager::setMutedApplicationVersions(
        Array{md5ByPython(kAppVersion), md5ByPython("com.example.host:2.5-")});
    rt.platform().fakeDevice().setIdentifierForVendor("");
    Manager::setMutedDevices(Array{md5ByPython(""), md5ByPython(kDevice)});
    EXPECT_TRUE(shouldUpload());
}

}  // namespace
}  // namespace tarvik
