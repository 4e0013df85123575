#include <tarvik/Tarvik.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKLogger.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/DeliveryFixture.h"
#include "support/Files.h"
#include "support/ReadOnlyFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using Kind = TVKDirectoryLayout::Kind;
using Status = TVKDirectoryLayout::Status;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::TestRuntime;
using ::testing::ThrowsMessage;

constexpr Kind kKinds[] = {Kind::Issues, Kind::Events};
constexpr Status kStatuses[] = {Status::Processing, Status::Queued, Status::Sent};

std::string submissionFolder(Kind kind, Status status) {
    return TVKDirectoryLayout::statusFolderPath(kind, status) + "/some-uuid";
}

// Leaves one submission folder with a file in every status folder of both kinds.
void fillStatusFolders() {
    for (Kind kind : kKinds) {
        for (Status status : kStatuses) {
            fs::create_directories(submissionFolder(kind, status));
            std::ofstream(submissionFolder(kind, status) + "/metadata.plist") << "x";
        }
    }
}

// The parameter assertion the SDK throws for a missing argument, with its exact text.
auto missing(const std::string& name) {
    return ThrowsMessage<ParameterAssertionError>(
        ::testing::StrEq("Invalid parameter not satisfying: " + name));
}

// Counts how often the SDK considers showing the instruction overlay, and declines.
class CountingDelegate : public TarvikDelegate {
  public:
    std::optional<bool> tarvikShouldDisplayInstructionView(Tarvik&) override {
        ++instructionQuestions;
        return false;
    }
    int instructionQuestions = 0;
};

// How a request body carries a form field.
std::string field(const std::string& name, const std::string& value) {
    return "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
}

// The singleton of a fresh runtime, not started yet.
class TarvikTest : public ::testing::Test {
  protected:
    TestRuntime test;
    Tarvik& tarvik = Tarvik::sharedInstance();
};
using TarvikStart = TarvikTest;
using TarvikSession = TarvikTest;

TEST_F(TarvikStart, AMissingKeyIsAParameterAssertionAndAnEmptyOneStarts) {
    EXPECT_THAT([] { Tarvik::startWithAPIKey(std::nullopt); }, missing("apiKey"));
    EXPECT_THAT([] { Tarvik::startWithAPIKey(std::nullopt, TarvikProcessTypeManual); },
                missing("apiKey"));
    EXPECT_THAT([] { Tarvik::startWithAPIKey(std::nullopt, TarvikProcessTypeManual, true); },
                missing("apiKey"));
    // Nothing of the start-up ran.
    EXPECT_FALSE(fs::exists(TVKDirectoryLayout::cacheFolderPath()));

    EXPECT_EQ(&Tarvik::startWithAPIKey(std::string()), &tarvik);
    EXPECT_EQ(tarvik.apiKey(), std::optional<std::string>(""));
    EXPECT_EQ(tarvik.processType(), TarvikProcessTypeShake);  // the shorter forms' defaults
    EXPECT_FALSE(tarvik.debug());
}

// A key read from a file or pasted often ends in a line break: surrounding white space is
// dropped. A key that still holds a control character cannot be sent as a header value, so
// the start is refused, always with a console line and in debug mode with the reason.
TEST_F(TarvikStart, SurroundingWhiteSpaceIsDroppedAndAKeyWithAControlCharacterIsRefused) {
    const std::string refused =
        "Tarvik -- the API key cannot be sent in a request header; "
        "Tarvik is not started";
    Tarvik::startWithAPIKey("k\x01ey", TarvikProcessTypeManual, false);
    EXPECT_THAT(test.consoleLines(), ::testing::ElementsAre(refused));
    EXPECT_EQ(tarvik.apiKey(), std::nullopt);
    EXPECT_FALSE(fs::exists(TVKDirectoryLayout::cacheFolderPath()));

    Tarvik::startWithAPIKey(" \tkey-123\r\n", TarvikProcessTypeManual, false);
    EXPECT_EQ(tarvik.apiKey(), "key-123");
    EXPECT_TRUE(fs::exists(TVKDirectoryLayout::cacheFolderPath()));

    // A refused start leaves the earlier one as it was.
    Tarvik::startWithAPIKey("key-456\x7f", TarvikProcessTypeShake, true);
    EXPECT_EQ(tarvik.apiKey(), "key-123");
    EXPECT_EQ(tarvik.processType(), TarvikProcessTypeManual);
    EXPECT_THAT(test.consoleLines(),
                ::testing::ElementsAre(refused, refused,
                                       "Tarvik -- the API key holds the control character 0x7F "
                                       "at offset 7"));
}

TEST_F(TarvikStart, EachStartMakesTheTreeAndEmptiesProcessingAndOutsideDebugSent) {
    bool filled = false;  // the first start finds nothing; later ones a submission everywhere
    for (bool debug : {false, true, false}) {
        Tarvik::startWithAPIKey(debug ? "debug" : "quiet", TarvikProcessTypeScreenshot, debug);
        EXPECT_EQ(tarvik.apiKey(), debug ? "debug" : "quiet");  // each start replaces the key
        EXPECT_EQ(tarvik.debug(), debug);
        for (Kind kind : kKinds) {
            for (Status status : kStatuses) {
                bool kept = status == Status::Queued || (debug && status == Status::Sent);
                EXPECT_EQ(fs::exists(submissionFolder(kind, status)), filled && kept) << debug;
                EXPECT_TRUE(fs::is_directory(TVKDirectoryLayout::statusFolderPath(kind, status)));
            }
        }
        fillStatusFolders();
        filled = true;
    }
}

// Events recorded before the start have no key to be sent with: they are dropped, and the
// start says how many in debug mode.
TEST_F(TarvikStart, DebugBannerGoesToTheConsoleOnlyInDebugWithTheEventsDroppedBeforeIt) {
    tarvik.recordEvent("too early", "a.cpp", "f", 1, false);
    tarvik.recordEvent("too early", "a.cpp", "f", 2, false);
    test.drain();
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, false);
    EXPECT_TRUE(test.consoleLines().empty());
    tarvik.recordEvent("too early", "a.cpp", "f", 3, false);  // after the start: not dropped
    test.drain();
    tarvik.setApiKey(std::nullopt);  // as before the first start
    tarvik.recordEvent("too early", "a.cpp", "f", 4, false);
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, true);
    std::vector<std::string> lines = test.consoleLines();
    lines.resize(std::min<size_t>(lines.size(), 2));  // then the polling's own lines
    EXPECT_THAT(lines,
                ::testing::ElementsAre("Tarvik -- 1 event recorded before the start was dropped: "
                                       "start Tarvik before recording events",
                                       "Starting Tarvik - version 1.0.0"));
    test.drain();
    // Only the event recorded after the start reached the service.
    EXPECT_EQ(test.platform().fakeHttpTransport().exchanges().size(), 1u);
}

TEST_F(TarvikStart, AnUnwritableCachesFolderDoesNotStopTheStart) {
    std::string caches = test.platform().folders().cachesDirectory();
    fs::create_directories(caches);
    testsupport::ReadOnlyFolder guard(caches);
    if (!guard.refusesNewFiles()) {
        GTEST_SKIP() << "permissions are not enforced for this process";
    }
    EXPECT_EQ(Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, true).apiKey(), "key");
    EXPECT_FALSE(fs::exists(TVKDirectoryLayout::cacheFolderPath()));
    EXPECT_THAT(test.consoleLines(), ::testing::Contains(::testing::StartsWith(
                                         "Tarvik Error -- FAILED to create DIRECTORY: " + caches)));
    // The settings folder lives elsewhere and is still made.
    EXPECT_TRUE(fs::is_directory(TVKDirectoryLayout::settingsFolderPath()));
}

TEST_F(TarvikSession, InstructionViewIsConsideredOnceAndNeverForTheManualType) {
    auto delegate = std::make_shared<CountingDelegate>();
    tarvik.setDelegate(delegate);
    tarvik.setProcessType(TarvikProcessTypeManual);
    EXPECT_EQ(delegate->instructionQuestions, 0);
    // An unknown type arms no trigger but is stored and still considers the overlay.
    tarvik.setProcessType(7);
    EXPECT_EQ(tarvik.processType(), 7);
    EXPECT_EQ(delegate->instructionQuestions, 1);
    EXPECT_TRUE(tarvik.didShowInstructionView());
    tarvik.presentReportIssueController();  // only the manual type opens the reporter here
    EXPECT_EQ(tarvik.submissionDialogStartDate(), 0);
    Tarvik::startWithAPIKey("key", TarvikProcessTypeShake, false);
    Tarvik::startWithAPIKey("key", TarvikProcessTypeScreenshot, false);
    EXPECT_EQ(delegate->instructionQuestions, 1);
}

TEST_F(TarvikSession, TheLaunchNotificationOpensTheReporter) {
    test.advance(2);
    test.runtime().notificationCenter().post(TarvikNotificationShouldLaunchIssueSubmission);
    EXPECT_DOUBLE_EQ(tarvik.submissionDialogStartDate(), 1002.0);
}

TEST_F(TarvikSession, SessionLengthLeavesOutTheTimeInTheReporter) {
    Tarvik::startWithAPIKey("key-1", TarvikProcessTypeManual, false);
    tarvik.setUserIdentifier("u-1");
    test.advance(70);
    tarvik.presentReportIssueController();  // the reporter opens at 70 s...
    test.advance(30);
    tarvik.incrementTimeSpentSubmittingIssue();  // ...and closes at 100 s
    EXPECT_EQ(tarvik.createTarvikProperties(),
              (Dictionary{{TarvikUserPropertyIdentifierKey, "u-1"},
                          {"apiKey", "key-1"},
                          {TarvikUserPropertyVersionKey, "1.0.0"},
                          {TarvikUserPropertySessionLength, 70.0}}));
    EXPECT_DOUBLE_EQ(tarvik.totalTimeInSubmissionDialog(), 30.0);
}

TEST_F(TarvikSession, NoneRemovesAUserValueAndClearingRemovesTheEmailFromTheSettingsFile) {
    Tarvik::startWithAPIKey("key");
    tarvik.setUserIdentifier("u-1");
    tarvik.setUsername("ann");
    tarvik.setUserEmail("ann@example.com");
    EXPECT_EQ(TVKSettingsManager::userEmail(), std::optional<std::string>("ann@example.com"));
    tarvik.setUsername(std::nullopt);
    EXPECT_EQ(tarvik.userProperties(),
              (Dictionary{{TarvikUserPropertyIdentifierKey, "u-1"},
                          {TarvikUserPropertyEmailKey, "ann@example.com"}}));
    tarvik.clearUserInformation();
    EXPECT_TRUE(tarvik.userProperties().empty());
    EXPECT_FALSE(TVKSettingsManager::userEmail());
    EXPECT_THAT(testsupport::readFile(TVKSettingsManager::tarvikSettingsPath()),
                Not(HasSubstr("ann@example.com")));
}

TEST_F(TarvikSession, FloatsKeepTheirShortTextAndDictionariesTheirJson) {
    tarvik.setFloatValue(1.1f, "ratio");
    tarvik.setDictionary(Dictionary{{"a", 1}}, "extra");
    EXPECT_EQ(tarvik.metadata().at("ratio").description(), "1.1");
    EXPECT_EQ(tarvik.metadata().at("extra"), Value(R"({"a":1})"));
    // A dictionary without a JSON form leaves the property as it was; none removes it.
    tarvik.setDictionary(Dictionary{{"when", Date()}}, "extra");
    EXPECT_EQ(tarvik.metadata().at("extra"), Value(R"({"a":1})"));
    tarvik.setDictionary(std::nullopt, "extra");
    tarvik.setString(std::nullopt, "ratio");
    EXPECT_TRUE(tarvik.metadata().empty());
}

TEST_F(TarvikSession, AMissingKeyOrFileIsAParameterAssertion) {
    // The string, number and boolean setters share one check; dictionaries have their own.
    EXPECT_THAT([&] { tarvik.setString("v", std::nullopt); }, missing("key"));
    EXPECT_THAT([&] { tarvik.setDictionary(Dictionary{}, std::nullopt); }, missing("key"));
    EXPECT_THAT([&] { tarvik.addAttachmentWithFileUrl(std::nullopt); }, missing("fileUrl"));
    EXPECT_THAT([&] { tarvik.removeAttachmentWithFileUrl(std::nullopt); }, missing("fileUrl"));
}

TEST_F(TarvikSession, TheTenfoldLimitAppliesToAttachmentsThatCompressWell) {
    std::string image = test.root() + "/photo.png";
    std::string json = test.root() + "/state.json";
    std::ofstream(image) << std::string(200000, 'p');
    std::ofstream(json) << std::string(200000, 'j');
    EXPECT_FALSE(tarvik.addAttachmentWithFileUrl(image));
    EXPECT_TRUE(tarvik.addAttachmentWithFileUrl(json));
    EXPECT_TRUE(tarvik.addAttachmentWithFileUrl(json));  // already there: still true
    EXPECT_FALSE(tarvik.addAttachmentWithFileUrl(test.root() + "/missing.txt"));
    EXPECT_EQ(tarvik.attachments(), std::set<std::string>{json});
    tarvik.removeAttachmentWithFileUrl(json);
    EXPECT_TRUE(tarvik.attachments().empty());
}

TEST_F(TarvikSession, StoppingATimerStoresTheTimeSinceItsLastStartOnce) {
    tarvik.stopTrackingTimeForKey("never started");
    tarvik.startTrackingTimeForKey("checkout");
    test.advance(1);
    tarvik.startTrackingTimeForKey("checkout");  // a second start restarts from now
    test.advance(4);
    tarvik.stopTrackingTimeForKey("checkout");
    test.advance(10);
    tarvik.stopTrackingTimeForKey("checkout");  // not running any more: ignored
    EXPECT_EQ(tarvik.userElapsedTimesDictionary(), (Dictionary{{"checkout", 4.0}}));
    EXPECT_TRUE(tarvik.userTimestampsDictionary().empty());
}

using EventRecording = testsupport::DeliveryTest;

TEST_F(EventRecording, LinesKeepTheirSignAndNamesThatAreNotUtf8AreLeftOut) {
    Tarvik::sharedInstance().recordEvent("negative", "a.cpp", "f", -7, false);
    test.drain();
    Tarvik::sharedInstance().recordEvent("odd names", "bad\xFF.cpp", "f\xC3", 0, false);
    test.drain();
    auto sent = submissionsSent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_THAT(sent[0].body, HasSubstr(field("line_number", "-7")));
    EXPECT_THAT(sent[0].body, HasSubstr(field("method_name", "f")));
    // The event's fields go out in the order the SDK builds its event data in.
    std::vector<size_t> positions;
    for (const char* name : {"message", "file_name", "method_name", "line_number"}) {
        positions.push_back(sent[0].body.find("name=\"" + std::string(name) + "\""));
    }
    EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end())) << sent[0].body;
    EXPECT_THAT(sent[1].body, HasSubstr(field("line_number", "0")));
    EXPECT_THAT(sent[1].body, Not(HasSubstr("name=\"file_name\"")));
    EXPECT_THAT(sent[1].body, Not(HasSubstr("name=\"method_name\"")));
}

// A send answer can switch events off without changing the interval, so no timer restarts. The
// next dropped event asks the service again, once: later ones find polling running.
TEST_F(EventRecording, ADroppedEventRestartsPollingThatIsNotRunning) {
    auto configurationRequests = [this] {
        std::size_t gets = 0;
        for (const auto& exchange : transport().exchanges()) {
            gets += exchange.request.method == "GET";
        }
        return gets;
    };
    ASSERT_EQ(configurationRequests(), 0u);  // events are on in a new installation
    setSubmissionAnswer([] {
        return testsupport::answerWithBody(
            200, R"({"event": {"enabled": false, "check_interval": 15}})");
    });
    setConfigurationAnswer(R"({"enabled": false, "check_interval": 15})");
    Tarvik::sharedInstance().recordEvent("switches events off", "a.cpp", "f", 1, false);
    test.drain();
    ASSERT_FALSE(TVKSettingsManager::eventSubmissionEnabled());
    EXPECT_EQ(configurationRequests(), 0u);

    for (int event = 0; event < 50; ++event) {
        Tarvik::sharedInstance().recordEvent("dropped", "a.cpp", "f", 1, false);
    }
    test.drain();
    EXPECT_EQ(configurationRequests(), 1u);

    // The service switches events on again; the next poll finds it, and events are sent.
    setConfigurationAnswer(R"({"enabled": true})");
    test.advance(900);
    EXPECT_EQ(configurationRequests(), 2u);
    Tarvik::sharedInstance().recordEvent("sent", "a.cpp", "f", 1, false);
    test.drain();
    EXPECT_EQ(submissionsSent().size(), 2u);
}

// The debug log is text: each byte of a name that is not UTF-8 becomes U+FFFD there.
TEST_F(EventRecording, LoggedNamesThatAreNotUtf8HaveTheirBadBytesReplaced) {
    fs::create_directories(TVKLogger::tempLogsDirectory());
    Tarvik::sharedInstance().logMessage("m\xFF", 1, "dir\xFE/bad\xFF.cpp", "f\xC3", 3);
    EXPECT_THAT(testsupport::readFile(TVKLogger::tempLogsDirectory() + "/debug_logs.txt"),
                HasSubstr(" 1 bad\uFFFD.cpp f\uFFFD 3 m\uFFFD\n"));
}

TEST_F(EventRecording, EventsRecordedWhileDisabledAreNeitherKeptNorSent) {
    TVKSettingsManager::setEventSubmissionEnabled(false);
    Tarvik::sharedInstance().recordEvent("off", "a.cpp", "f", 1, true);
    test.drain();
    EXPECT_TRUE(fs::is_empty(TVKEventSubmission::submissionTypeFolderPath() + "/Queued"));
    TVKSettingsManager::setEventSubmissionEnabled(true);
    Tarvik::sharedInstance().recordEvent("on", "a.cpp", "f", 1, true);
    test.drain();
    EXPECT_EQ(submissionsSent().size(), 1u);  // only the second
}

}  // namespace
}  // namespace tarvik
