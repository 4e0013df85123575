#include <tarvik/Tarvik.h>

#include "Helpers/TVKSettingsManager.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tarvik {
namespace {

using testing::TestRuntime;

void expectParameterAssertion(const std::function<void()>& call, const std::string& name) {
    try {
        call();
        ADD_FAILURE() << "no assertion for " << name;
    } catch (const ParameterAssertionError& error) {
        EXPECT_EQ(std::string(error.what()), "Invalid parameter not satisfying: " + name);
    }
}

TEST(TarvikUserInformation, SettersStoreAndNoneRemoves) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::startWithAPIKey("key");
    tarvik.setUserIdentifier("u-1");
    tarvik.setUsername("ann");
    tarvik.setUserFullName("Ann Lee");
    tarvik.setUserEmail("ann@example.com");
    EXPECT_EQ(tarvik.userProperties(),
              (Dictionary{{TarvikUserPropertyIdentifierKey, "u-1"},
                          {TarvikUserPropertyUsernameKey, "ann"},
                          {TarvikUserPropertyFullNameKey, "Ann Lee"},
                          {TarvikUserPropertyEmailKey, "ann@example.com"}}));
    EXPECT_EQ(TVKSettingsManager::userEmail(), std::optional<std::string>("ann@example.com"));
    tarvik.setUsername(std::nullopt);
    EXPECT_FALSE(tarvik.userProperties().contains(TarvikUserPropertyUsernameKey));
}

TEST(TarvikUserInformation, ClearingRemovesTheEmailFromTheSettingsFileToo) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::startWithAPIKey("key");
    tarvik.setUserEmail("ann@example.com");
    ASSERT_EQ(TVKSettingsManager::userEmail(), std::optional<std::string>("ann@example.com"));
    tarvik.setUserIdentifier("u-1");
    tarvik.clearUserInformation();
    EXPECT_TRUE(tarvik.userProperties().empty());
    EXPECT_FALSE(TVKSettingsManager::userEmail());
    std::ifstream file(TVKSettingsManager::tarvikSettingsPath(), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes.find("ann@example.com"), std::string::npos);
}

TEST(TarvikCustomProperties, EachKindKeepsItsType) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::sharedInstance();
    tarvik.setString("gold", "plan");
    tarvik.setIntValue(-42, "count");
    tarvik.setBoolValue(true, "beta");
    tarvik.setFloatValue(1.1f, "ratio");
    tarvik.setDictionary(Dictionary{{"a", 1}}, "extra");
    Dictionary metadata = tarvik.metadata();
    EXPECT_EQ(metadata.at("plan"), Value("gold"));
    EXPECT_EQ(metadata.at("count"), Value(-42));
    EXPECT_EQ(metadata.at("beta"), Value(true));
    EXPECT_EQ(metadata.at("ratio").description(), "1.1");
    EXPECT_EQ(metadata.at("extra"), Value(R"({"a":1})"));

    tarvik.setDictionary(std::nullopt, "extra");
    tarvik.setString(std::nullopt, "plan");
    EXPECT_FALSE(tarvik.metadata().contains("extra"));
    EXPECT_FALSE(tarvik.metadata().contains("plan"));
}

TEST(TarvikCustomProperties, ADictionaryWithoutAJsonFormLeavesThePropertyAlone) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::sharedInstance();
    tarvik.setString("before", "extra");
    tarvik.setDictionary(Dictionary{{"when", Date()}}, "extra");
    EXPECT_EQ(tarvik.metadata().at("extra"), Value("before"));
}

TEST(TarvikCustomProperties, AMissingKeyOrFileIsAParameterAssertion) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::sharedInstance();
    expectParameterAssertion([&] { tarvik.setString("v", std::nullopt); }, "key");
    expectParameterAssertion([&] { tarvik.setIntValue(1, std::nullopt); }, "key");
    expectParameterAssertion([&] { tarvik.setBoolValue(true, std::nullopt); }, "key");
    expectParameterAssertion([&] { tarvik.setFloatValue(1, std::nullopt); }, "key");
    expectParameterAssertion([&] { tarvik.setDictionary(Dictionary{}, std::nullopt); }, "key");
    expectParameterAssertion([&] { tarvik.addAttachmentWithFileUrl(std::nullopt); }, "fileUrl");
    expectParameterAssertion([&] { tarvik.removeAttachmentWithFileUrl(std::nullopt); }, "fileUrl");
    // The user-information setters take none without complaint.
    tarvik.setUserIdentifier(std::nullopt);
}

TEST(TarvikAttachments, TheTenfoldLimitAppliesToFilesThatCompressWell) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::sharedInstance();
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
    tarvik.removeAttachmentWithFileUrl(json);
    EXPECT_TRUE(tarvik.attachments().empty());
    tarvik.addAttachmentWithFileUrl(json);
    tarvik.clearAttachments();
    EXPECT_TRUE(tarvik.attachments().empty());
}

TEST(TarvikTimers, StopStoresTheTimeSinceStartOnce) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::sharedInstance();
    tarvik.stopTrackingTimeForKey("never started");
    tarvik.startTrackingTimeForKey("checkout");
    test.advance(4);
    tarvik.stopTrackingTimeForKey("checkout");
    test.advance(10);
    tarvik.stopTrackingTimeForKey("checkout");  // not running any more: ignored
    EXPECT_EQ(tarvik.userElapsedTimesDictionary(), (Dictionary{{"checkout", 4.0}}));
    EXPECT_TRUE(tarvik.userTimestampsDictionary().empty());

    tarvik.startTrackingTimeForKey("checkout");
    test.advance(1);
    tarvik.startTrackingTimeForKey("checkout");  // a second start restarts from now
    test.advance(2);
    tarvik.stopTrackingTimeForKey("checkout");
    EXPECT_EQ(tarvik.userElapsedTimesDictionary(), (Dictionary{{"checkout", 2.0}}));
}

TEST(TarvikProperties, SessionLengthLeavesOutTheTimeInTheReporter) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::startWithAPIKey("key-1", TarvikProcessTypeManual, false);
    tarvik.setUserIdentifier("u-1");
    test.advance(70);
    tarvik.presentReportIssueController();  // the reporter opens at 70 s...
    test.advance(30);
    tarvik.incrementTimeSpentSubmittingIssue();  // ...and closes at 100 s
    Dictionary properties = tarvik.createTarvikProperties();
    EXPECT_EQ(properties, (Dictionary{{TarvikUserPropertyIdentifierKey, "u-1"},
                                      {"apiKey", "key-1"},
                                      {TarvikUserPropertyVersionKey, "1.0.0"},
                                      {TarvikUserPropertySessionLength, 70.0}}));
    EXPECT_DOUBLE_EQ(tarvik.sessionLength(), 70.0);
    EXPECT_DOUBLE_EQ(tarvik.totalTimeInSubmissionDialog(), 30.0);
}

}  // namespace
}  // namespace tarvik
