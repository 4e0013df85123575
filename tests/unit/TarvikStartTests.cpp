#include <tarvik/Tarvik.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Platform/Testing/TestRuntime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using Kind = TVKDirectoryLayout::Kind;
using Status = TVKDirectoryLayout::Status;
using testing::TestRuntime;

std::string statusFolder(Kind kind, Status status) {
    return TVKDirectoryLayout::statusFolderPath(kind, status);
}

// Leaves one submission folder with a file in every status folder of both kinds.
void fillStatusFolders() {
    for (Kind kind : {Kind::Issues, Kind::Events}) {
        for (Status status : {Status::Processing, Status::Queued, Status::Sent}) {
            fs::create_directories(statusFolder(kind, status) + "/some-uuid");
            std::ofstream(statusFolder(kind, status) + "/some-uuid/metadata.plist") << "x";
        }
    }
}

bool holdsSubmission(Kind kind, Status status) {
    return fs::exists(statusFolder(kind, status) + "/some-uuid");
}

class CountingDelegate : public TarvikDelegate {
  public:
    explicit CountingDelegate(std::optional<bool> answer) : answer_(answer) {}
    std::optional<bool> tarvikShouldDisplayInstructionView(Tarvik&) override {
        ++instructionQuestions;
        return answer_;
    }
    int instructionQuestions = 0;

  private:
    std::optional<bool> answer_;
};

TEST(TarvikStart, MissingKeyIsAParameterAssertionInEveryForm) {
    TestRuntime test;
    auto expectAssertion = [](auto start) {
        try {
            start();
            ADD_FAILURE() << "no assertion";
        } catch (const ParameterAssertionError& error) {
            EXPECT_STREQ(error.what(), "Invalid parameter not satisfying: apiKey");
        }
    };
    expectAssertion([] { Tarvik::startWithAPIKey(std::nullopt); });
    expectAssertion([] { Tarvik::startWithAPIKey(std::nullopt, TarvikProcessTypeManual); });
    expectAssertion([] { Tarvik::startWithAPIKey(std::nullopt, TarvikProcessTypeManual, true); });
    // Nothing of the start-up ran.
    EXPECT_FALSE(fs::exists(TVKDirectoryLayout::cacheFolderPath()));
}

TEST(TarvikStart, EmptyKeyStartsWithTheShorterFormsDefaults) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::startWithAPIKey(std::string());
    EXPECT_EQ(tarvik.apiKey(), std::optional<std::string>(""));
    EXPECT_EQ(tarvik.processType(), TarvikProcessTypeShake);
    EXPECT_FALSE(tarvik.debug());
    EXPECT_EQ(&tarvik, &Tarvik::sharedInstance());
}

TEST(TarvikStart, CreatesTheWholeTree) {
    TestRuntime test;
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, false);
    EXPECT_TRUE(fs::is_directory(TVKDirectoryLayout::tempLogsDirectory()));
    EXPECT_TRUE(fs::is_directory(TVKDirectoryLayout::settingsFolderPath()));
    EXPECT_EQ(TVKDirectoryLayout::cacheFolderPath(),
              test.root() + "/Library/Caches/com.tarvikhq.cache");
    EXPECT_EQ(TVKDirectoryLayout::settingsFilePath(),
              test.root() + "/Library/Application Support/com.tarvikhq/config.plist");
    for (Kind kind : {Kind::Issues, Kind::Events}) {
        for (Status status : {Status::Processing, Status::Queued, Status::Sent}) {
            EXPECT_TRUE(fs::is_directory(statusFolder(kind, status)));
        }
    }
    EXPECT_EQ(statusFolder(Kind::Events, Status::Queued),
              TVKDirectoryLayout::cacheFolderPath() + "/events/Queued");
}

TEST(TarvikStart, WithoutDebugEmptiesProcessingAndSentButKeepsQueued) {
    TestRuntime test;
    fillStatusFolders();
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, false);
    for (Kind kind : {Kind::Issues, Kind::Events}) {
        EXPECT_FALSE(holdsSubmission(kind, Status::Processing));
        EXPECT_TRUE(holdsSubmission(kind, Status::Queued));
        EXPECT_FALSE(holdsSubmission(kind, Status::Sent));
        EXPECT_TRUE(fs::is_directory(statusFolder(kind, Status::Sent)));
    }
}

TEST(TarvikStart, InDebugKeepsSentSubmissions) {
    TestRuntime test;
    fillStatusFolders();
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, true);
    for (Kind kind : {Kind::Issues, Kind::Events}) {
        EXPECT_FALSE(holdsSubmission(kind, Status::Processing));
        EXPECT_TRUE(holdsSubmission(kind, Status::Queued));
        EXPECT_TRUE(holdsSubmission(kind, Status::Sent));
    }
}

TEST(TarvikStart, SecondStartReplacesTheKeyAndCleansAgain) {
    TestRuntime test;
    Tarvik::startWithAPIKey("first", TarvikProcessTypeManual, true);
    fillStatusFolders();
    Tarvik& tarvik = Tarvik::startWithAPIKey("second", TarvikProcessTypeScreenshot, false);
    EXPECT_EQ(tarvik.apiKey(), std::optional<std::string>("second"));
    EXPECT_EQ(tarvik.processType(), TarvikProcessTypeScreenshot);
    EXPECT_FALSE(tarvik.debug());
    EXPECT_FALSE(holdsSubmission(Kind::Issues, Status::Processing));
    EXPECT_FALSE(holdsSubmission(Kind::Issues, Status::Sent));
}

TEST(TarvikStart, DebugBannerGoesToTheConsoleOnlyInDebug) {
    TestRuntime test;
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, false);
    EXPECT_TRUE(test.consoleLines().empty());
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, true);
    EXPECT_THAT(test.consoleLines(), ::testing::ElementsAre("Starting Tarvik - version 1.0.0"));
}

TEST(TarvikStart, AnUnwritableCachesFolderDoesNotStopTheStart) {
    TestRuntime test;
    std::string caches = test.platform().folders().cachesDirectory();
    fs::create_directories(caches);
    fs::permissions(caches, fs::perms::owner_read | fs::perms::owner_exec);
    Tarvik& tarvik = Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, true);
    EXPECT_EQ(tarvik.apiKey(), std::optional<std::string>("key"));
    if (::geteuid() != 0) {  // root writes anywhere
        EXPECT_FALSE(fs::exists(TVKDirectoryLayout::cacheFolderPath()));
        EXPECT_THAT(test.consoleLines(),
                    ::testing::Contains(::testing::StartsWith(
                        "Tarvik Error -- FAILED to create DIRECTORY: " + caches)));
    }
    // The settings folder lives elsewhere and is still made.
    EXPECT_TRUE(fs::is_directory(TVKDirectoryLayout::settingsFolderPath()));
}

TEST(TarvikSingleton, InitialState) {
    TestRuntime test;
    test.advance(5);
    Tarvik& tarvik = Tarvik::sharedInstance();
    EXPECT_FALSE(tarvik.apiKey());
    EXPECT_FALSE(tarvik.debug());
    EXPECT_TRUE(tarvik.collectUserDefaults());
    EXPECT_TRUE(tarvik.saveUserLocation());
    EXPECT_EQ(tarvik.processType(), 0);
    EXPECT_TRUE(tarvik.metadata().empty());
    EXPECT_TRUE(tarvik.userProperties().empty());
    EXPECT_TRUE(tarvik.attachments().empty());
    EXPECT_TRUE(tarvik.userTimestampsDictionary().empty());
    EXPECT_TRUE(tarvik.userElapsedTimesDictionary().empty());
    EXPECT_FALSE(tarvik.userComments());
    EXPECT_DOUBLE_EQ(tarvik.tarvikStartDate(), 1005.0);  // media time at creation
    EXPECT_EQ(tarvik.sessionLength(), 0);
    EXPECT_EQ(tarvik.totalTimeInSubmissionDialog(), 0);
    EXPECT_FALSE(tarvik.didShowInstructionView());
}

TEST(TarvikSingleton, EveryThreadGetsTheSameInstance) {
    TestRuntime test;
    std::vector<Tarvik*> seen(8);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&, i] { seen[i] = &Tarvik::sharedInstance(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (Tarvik* instance : seen) {
        EXPECT_EQ(instance, seen.front());
    }
}

TEST(TarvikSingleton, VersionComesFromTheSdkBundleAndItsSetterOnlyStores) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::sharedInstance();
    EXPECT_EQ(tarvik.version(), std::optional<std::string>("1.0.0"));
    tarvik.setVersion("9.9");
    EXPECT_EQ(tarvik.version(), std::optional<std::string>("1.0.0"));
}

TEST(TarvikProcessType, InstructionViewIsConsideredOnceAcrossStartsAndTypes) {
    TestRuntime test;
    auto delegate = std::make_shared<CountingDelegate>(false);
    Tarvik& tarvik = Tarvik::sharedInstance();
    tarvik.setDelegate(delegate);
    Tarvik::startWithAPIKey("key", TarvikProcessTypeShake, false);
    Tarvik::startWithAPIKey("key", TarvikProcessTypeScreenshot, false);
    tarvik.setProcessType(TarvikProcessTypeShake);
    EXPECT_EQ(delegate->instructionQuestions, 1);
    EXPECT_TRUE(tarvik.didShowInstructionView());
}

TEST(TarvikProcessType, ManualTypeReturnsBeforeTheInstructionView) {
    TestRuntime test;
    auto delegate = std::make_shared<CountingDelegate>(std::nullopt);
    Tarvik& tarvik = Tarvik::sharedInstance();
    tarvik.setDelegate(delegate);
    tarvik.setProcessType(TarvikProcessTypeManual);
    EXPECT_EQ(tarvik.processType(), TarvikProcessTypeManual);
    EXPECT_EQ(delegate->instructionQuestions, 0);
    EXPECT_FALSE(tarvik.didShowInstructionView());
    // An unknown type arms no trigger but is stored and still considers the overlay.
    tarvik.setProcessType(7);
    EXPECT_EQ(tarvik.processType(), 7);
    EXPECT_EQ(delegate->instructionQuestions, 1);
}

TEST(TarvikReportTrigger, PresentingOpensTheReporterOnlyInTheManualType) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::sharedInstance();
    for (TarvikProcessType type : {TarvikProcessTypeShake, TarvikProcessTypeScreenshot}) {
        tarvik.setProcessType(type);
        tarvik.presentReportIssueController();
        EXPECT_EQ(tarvik.submissionDialogStartDate(), 0) << type;
    }
    test.advance(3);
    tarvik.setProcessType(TarvikProcessTypeManual);
    tarvik.presentReportIssueController();
    EXPECT_DOUBLE_EQ(tarvik.submissionDialogStartDate(), 1003.0);
}

TEST(TarvikReportTrigger, TheLaunchNotificationReachesTheSingleton) {
    TestRuntime test;
    Tarvik& tarvik = Tarvik::sharedInstance();
    test.advance(2);
    test.runtime().notificationCenter().post(TarvikNotificationShouldLaunchIssueSubmission);
    EXPECT_DOUBLE_EQ(tarvik.submissionDialogStartDate(), 1002.0);
}

TEST(TarvikConstants, ExportedValues) {
    EXPECT_EQ(TarvikVersionNumber, 1.0);
    EXPECT_STREQ(reinterpret_cast<const char*>(TarvikVersionString),
                 "@(#)PROGRAM:Tarvik  PROJECT:Tarvik-1\n");
    EXPECT_EQ(TarvikFileSizeLimit, 102400u);
    EXPECT_FALSE(TarvikDomainName.empty());
    EXPECT_EQ(TarvikNotificationDidFailSubmission, "TarvikNotificationDidFailSubmission");
    EXPECT_EQ(TarvikUserPropertySessionLength, "TarvikUserPropertySessionLength");
    importCategories();
    EXPECT_EQ(TarvikLibNSDateCategory, nullptr);
}

}  // namespace
}  // namespace tarvik
