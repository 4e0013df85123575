#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/Image.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"
#include "support/PermissionsEnforced.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using testing::TestRuntime;
using testsupport::readFile;
using testsupport::runCommand;
using testsupport::runPython;
using testsupport::shellQuoted;
using testsupport::writeFile;

// A started SDK with the logs holding a line each, and a way to gather a submission's files
// and wait until they are in.
class SubmissionTest : public ::testing::Test {
  protected:
    SubmissionTest() {
        Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, false);
        TVKLogger::logMessage("tapped pay");
        TVKLogger::logSystemMessage("console line");
        TVKLogger::logDebugMessage("debug line", 1, "File.cpp", 7, "run");
    }

    void gather(const std::shared_ptr<TVKSubmission>& submission) {
        std::atomic<bool> completed{false};
        submission->copyAllFilesWithCompletionHandler(
            [&](std::shared_ptr<TVKSubmission>) { completed = true; });
        test.drain();
        ASSERT_TRUE(completed.load());
    }

    std::string attachment(const std::string& name, const std::string& content = "data") {
        fs::create_directories(test.root() + "/host");
        std::string path = test.root() + "/host/" + name;
        writeFile(path, content);
        return path;
    }

    TestRuntime test;
};

using SubmissionLayout = SubmissionTest;

TEST_F(SubmissionLayout, ANewIssueHasItsFolderInProcessing) {
    auto issue = TVKIssueSubmission::create();
    EXPECT_TRUE(
        std::regex_match(issue->uuid(), std::regex("[0-9A-F]{8}-([0-9A-F]{4}-){3}[0-9A-F]{12}")));
    EXPECT_EQ(issue->submissionStatus(), TVKSubmissionStatusProcessing);
    EXPECT_EQ(issue->createdDate(), test.runtime().clock().now());
    std::string folder =
        TVKSubmission::tarvikCacheFolderPath() + "/issues/Processing/" + issue->uuid();
    EXPECT_EQ(issue->submissionFolderPath(), folder);
    EXPECT_TRUE(fs::is_directory(folder + "/user_attachments"));
    EXPECT_TRUE(fs::is_directory(folder + "/tarvik_attachments"));
    EXPECT_EQ(fs::file_size(folder + "/httpBody.txt"), 0u);
    EXPECT_EQ(issue->screenshotFilePath(), folder + "/tarvik_attachments/screenshot.jpg");
    EXPECT_EQ(issue->retryDateFilePath(), folder + "/retryDate.txt");
    EXPECT_EQ(issue->tarvikPropertiesFilePath(), folder + "/tarvik_properties.plist");
    EXPECT_NE(TVKIssueSubmission::create()->uuid(), issue->uuid());
}

TEST_F(SubmissionLayout, EachKindHasItsFoldersEndpointAndFiles) {
    auto event = TVKEventSubmission::create();
    std::string folder = TVKEventSubmission::queuedFolderPath();
    EXPECT_EQ(folder, TVKSubmission::tarvikCacheFolderPath() + "/events/Queued");
    EXPECT_EQ(event->eventDataFilePath(), *event->submissionFolderPath() + "/event_data.plist");
    EXPECT_EQ(event->stackFilePath(),
              *event->submissionFolderPath() + "/tarvik_attachments/stack_trace.json");
    std::string host = TarvikDomainName;
    TarvikDomainName = "collector.test:8443";
    EXPECT_EQ(event->tarvikAPIUrl(), "https://collector.test:8443/v1/event/save.json");
    EXPECT_EQ(TVKIssueSubmission::create()->tarvikAPIUrl(),
              "https://collector.test:8443/v1/issue/create.json");
    EXPECT_TRUE(isEventSubmission(*event));
    EXPECT_FALSE(isEventSubmission(*TVKIssueSubmission::withUUID("X")));
    TarvikDomainName = host;
}

TEST_F(SubmissionLayout, AStatusOutsideTheThreeNamesNoFolder) {
    auto event = TVKEventSubmission::create();
    EXPECT_FALSE(event->statusFolderPathForStatus(3));
    EXPECT_FALSE(TVKSubmission::submissionStatusFolderNameForStatus(-1));
    event->setSubmissionStatus(3);
    EXPECT_EQ(event->submissionStatus(), 3);
    EXPECT_FALSE(event->submissionFolderPath());
}

// A submission of no kind: every operation only a kind can do is refused.
class KindlessSubmission : public TVKSubmission {
  public:
    KindlessSubmission() : TVKSubmission("KINDLESS") {}
};

TEST_F(SubmissionLayout, TheBaseClassRefusesWhatOnlyAKindCanDo) {
    KindlessSubmission bare;
    EXPECT_THROW(bare.tarvikAPIUrl(), InternalInconsistencyError);
    EXPECT_THROW(bare.stackFilePath(), InternalInconsistencyError);
    EXPECT_THROW(bare.savedEventSubmissionDataURL(), InternalInconsistencyError);
    EXPECT_THROW(bare.saveEventSubmissionData({}), InternalInconsistencyError);
    EXPECT_THROW(bare.submissionFolderPath(), InternalInconsistencyError);
    try {
        bare.tarvikAPIUrl();
    } catch (const InternalInconsistencyError& error) {
        EXPECT_STREQ(error.what(), "this should never be called, should use subclass version");
    }
}

using SubmissionStatus = SubmissionTest;

TEST_F(SubmissionStatus, QueuingMovesTheFolderAndRewritesTheFileUrls) {
    auto event = TVKEventSubmission::create();
    gather(event);
    std::string processing = *event->submissionFolderPath();
    event->setSubmissionStatus(TVKSubmissionStatusQueued);
    std::string queued = *event->submissionFolderPath();
    EXPECT_EQ(queued, TVKEventSubmission::queuedFolderPath() + "/" + event->uuid());
    EXPECT_FALSE(fs::exists(processing));
    EXPECT_TRUE(fs::exists(queued + "/tarvik_attachments/system_logs.txt"));
    for (const std::string& url : event->attachedFilesUrls()) {
        EXPECT_TRUE(url.starts_with(queued + "/")) << url;
        EXPECT_TRUE(fs::exists(url)) << url;
    }
}

TEST_F(SubmissionStatus, SentMovesTheFolderOnlyInDebugMode) {
    auto event = TVKEventSubmission::create();
    event->setSubmissionStatus(TVKSubmissionStatusQueued);
    std::string queued = *event->submissionFolderPath();
    event->setSubmissionStatus(TVKSubmissionStatusSent);
    EXPECT_EQ(event->submissionStatus(), TVKSubmissionStatusSent);
    EXPECT_TRUE(fs::exists(queued));  // without debug nothing moves

    Tarvik::sharedInstance().setDebug(true);
    auto kept = TVKEventSubmission::create();
    kept->setSubmissionStatus(TVKSubmissionStatusQueued);
    kept->setSubmissionStatus(TVKSubmissionStatusSent);
    EXPECT_TRUE(fs::is_directory(TVKEventSubmission::sentFolderPath() + "/" + kept->uuid()));
}

TEST_F(SubmissionStatus, RemovalDeletesOrInDebugModeKeepsInSent) {
    auto gone = TVKIssueSubmission::create();
    gone->setSubmissionStatus(TVKSubmissionStatusQueued);
    std::string folder = *gone->submissionFolderPath();
    gone->removeFromPending();
    EXPECT_FALSE(fs::exists(folder));

    Tarvik::sharedInstance().setDebug(true);
    auto kept = TVKIssueSubmission::create();
    kept->setSubmissionStatus(TVKSubmissionStatusQueued);
    kept->removeFromPending();
    EXPECT_EQ(kept->submissionStatus(), TVKSubmissionStatusSent);
    EXPECT_TRUE(fs::is_directory(TVKIssueSubmission::sentFolderPath() + "/" + kept->uuid()));
}

using SubmissionGathering = SubmissionTest;

}  // namespace

// An event's stack starts at the host's code: the capture, the gathering and the SDK call that
// started it (here a stand-in for the facade's event recording) are left out. Stack frames name
// functions the executable exports, so both have external linkage (the test bodies themselves
// live in an anonymous namespace).
__attribute__((noinline)) void sdkCallThatGathers(const std::shared_ptr<TVKSubmission>& submission,
                                                  std::atomic<bool>& completed) {
    submission->copyAllFilesWithCompletionHandler(
        [&](std::shared_ptr<TVKSubmission>) { completed = true; });
}

__attribute__((noinline)) void hostCodeRecordingAnEvent(
    const std::shared_ptr<TVKSubmission>& submission, std::atomic<bool>& completed) {
    sdkCallThatGathers(submission, completed);
    asm volatile("");  // keeps this frame from becoming a tail call
}

namespace {

TEST_F(SubmissionGathering, AnEventCarriesTheLogsDefaultsAndTheCallersStack) {
    test.platform().userDefaults().setPersistentDomain({{"theme", "dark"}, {"launches", 3}},
                                                       "com.example.host");
    std::string notAttached = attachment("notes.txt");
    Tarvik::sharedInstance().addAttachmentWithFileUrl(notAttached);
    auto event = TVKEventSubmission::create();
    event->attachFileFromUrl(notAttached);
    std::atomic<bool> completed{false};
    hostCodeRecordingAnEvent(event, completed);
    test.drain();
    ASSERT_TRUE(completed.load());

    std::string files = event->tarvikAttachmentsFolderPath();
    EXPECT_THAT(readFile(files + "/user_tracking_logs.txt"), ::testing::EndsWith(" tapped pay\n"));
    EXPECT_EQ(readFile(files + "/system_logs.txt"), "console line\n");
    EXPECT_THAT(readFile(files + "/debug_logs.txt"),
                ::testing::EndsWith(" 1 File.cpp run 7 debug line\n"));
    // Without includeEventAttachments the host's files stay out.
    EXPECT_TRUE(fs::is_empty(event->userAttachmentsFolderPath()));
    EXPECT_THAT(event->attachedFilesUrls(),
                ElementsAre(files + "/debug_logs.txt", files + "/stack_trace.json",
                            files + "/system_logs.txt", files + "/user_defaults.json",
                            files + "/user_tracking_logs.txt"));

    auto check = runPython(R"(
import json, sys
defaults = json.load(open(sys.argv[1]))
assert defaults == {"theme": "dark", "launches": "3"}, defaults
frames = json.load(open(sys.argv[2]))
assert [f["index"] for f in frames] == list(range(len(frames)))
assert all(set(f) == {"index", "lib", "code", "app_frame"} for f in frames)
assert frames[0]["code"].startswith("tarvik::hostCodeRecordingAnEvent("), frames[:2]
print("ok")
)",
                           shellQuoted(files + "/user_defaults.json") + " " +
                               shellQuoted(files + "/stack_trace.json"));
    EXPECT_EQ(check.exitCode, 0) << check.output;
}

TEST_F(SubmissionGathering, AnIssueAlwaysGetsTheHostsAttachmentsThroughTheHandOver) {
    std::string log = attachment("app log.txt", "app log");
    std::string settings = attachment("réglages.json", "{}");
    Tarvik::sharedInstance().addAttachmentWithFileUrl(log);
    Tarvik::sharedInstance().addAttachmentWithFileUrl(settings);
    auto issue = TVKIssueSubmission::create();
    gather(issue);
    std::string folder = issue->userAttachmentsFolderPath();
    EXPECT_EQ(readFile(folder + "/app log.txt"), "app log");
    EXPECT_EQ(readFile(folder + "/réglages.json"), "{}");
    EXPECT_THAT(issue->attachedFilesUrls(), Contains(folder + "/app log.txt"));
    // An issue has no stack file.
    EXPECT_FALSE(fs::exists(issue->tarvikAttachmentsFolderPath() + "/stack_trace.json"));
}

TEST_F(SubmissionGathering, AnEventIncludesAttachmentsOnlyWhenAsked) {
    auto event = TVKEventSubmission::create();
    event->setIncludeEventAttachments(true);
    event->attachFileFromUrl(attachment("crash.json", "[1]"));
    gather(event);
    EXPECT_EQ(readFile(event->userAttachmentsFolderPath() + "/crash.json"), "[1]");
}

TEST_F(SubmissionGathering, WithoutCollectingUserDefaultsThereIsNoDefaultsFile) {
    Tarvik::sharedInstance().setCollectUserDefaults(false);
    auto event = TVKEventSubmission::create();
    gather(event);
    EXPECT_FALSE(fs::exists(event->userDefaultsFilePath()));
    EXPECT_THAT(event->attachedFilesUrls(),
                ::testing::Not(Contains(event->userDefaultsFilePath())));
}

TEST_F(SubmissionGathering, AttachmentsThatCannotBeCopiedAreSkippedQuietly) {
    std::string vanished = attachment("vanished.txt");
    std::string folder = test.root() + "/host/a folder";
    fs::create_directories(folder);
    writeFile(folder + "/inside.txt", "inside");
    std::string first = attachment("same.txt", "first");
    fs::create_directories(test.root() + "/host/other");
    std::string second = test.root() + "/host/other/same.txt";
    writeFile(second, "second");

    auto event = TVKEventSubmission::create();
    event->setIncludeEventAttachments(true);
    for (const std::string& url : {vanished, folder, first, second}) {
        event->attachFileFromUrl(url);
    }
    fs::remove(vanished);
    gather(event);
    std::string copies = event->userAttachmentsFolderPath();
    EXPECT_FALSE(fs::exists(copies + "/vanished.txt"));
    EXPECT_EQ(readFile(copies + "/a folder/inside.txt"), "inside");
    // Two files of one name: the one copied last is kept, under that one name.
    EXPECT_EQ(readFile(copies + "/same.txt"), second < first ? "first" : "second");
    // Every attachment is listed, copied or not; the request skips what is missing.
    EXPECT_THAT(event->attachedFilesUrls(), Contains(copies + "/vanished.txt"));
}

TEST_F(SubmissionGathering, AnUnreadableAttachmentIsListedButNotCopied) {
    std::string secret = attachment("secret.txt", "private");
    fs::permissions(secret, fs::perms::none);
    auto event = TVKEventSubmission::create();
    event->attachFileFromUrl(secret);
    {
        // Copied on this thread, whose permissions apply even when the tests run as root.
        testsupport::PermissionsEnforced enforced;
        if (std::ifstream(secret).good()) {
            GTEST_SKIP() << "file permissions cannot be enforced here";
        }
        event->copyUserAttachedFiles();
    }
    std::string copy = event->userAttachmentsFolderPath() + "/secret.txt";
    EXPECT_FALSE(fs::exists(copy));
    EXPECT_THAT(event->attachedFilesUrls(), Contains(copy));
}

TEST_F(SubmissionGathering, AFolderDeletedWhileGatheringDoesNotStopIt) {
    auto event = TVKEventSubmission::create();
    fs::remove_all(*event->submissionFolderPath());
    gather(event);
    EXPECT_FALSE(
        fs::exists(*event->submissionFolderPath() + "/tarvik_attachments/system_logs.txt"));
}

TEST_F(SubmissionGathering, TheHostMayChangeItsPropertiesWhileFilesAreGathered) {
    auto event = TVKEventSubmission::create();
    event->setIncludeEventAttachments(true);
    std::string file = attachment("live.json", "{}");
    std::atomic<bool> completed{false};
    event->copyAllFilesWithCompletionHandler([&](auto) { completed = true; });
    Tarvik& tarvik = Tarvik::sharedInstance();
    for (int i = 0; !completed.load() || i < 200; ++i) {
        tarvik.setIntValue(i, "counter");
        tarvik.addAttachmentWithFileUrl(file);
        tarvik.removeAttachmentWithFileUrl(file);
        event->attachFileFromUrl(file);
        test.platform().runLoop().runDueWork();
    }
    test.drain();
    EXPECT_TRUE(completed.load());
}

using SubmissionFiles = SubmissionTest;

TEST_F(SubmissionFiles, PropertyListsLoadInPythonWithTheirTypes) {
    auto event = TVKEventSubmission::create();
    event->saveMetadata({{"plan", "gold"}, {"count", -3}, {"beta", true}, {"ratio", 1.5}});
    event->saveUserProperties(Tarvik::sharedInstance().createTarvikProperties());
    event->saveUserElapsedTimes({{"checkout", 2.25}});
    event->saveEventSubmissionData({{"message", "paid"}, {"line_number", "118"}});
    EXPECT_EQ(event->message(), std::optional<std::string>("paid"));
    auto check = runPython(R"(
import plistlib, sys
folder = sys.argv[1]
load = lambda name: plistlib.load(open(folder + "/" + name, "rb"))
m = load("metadata.plist")
assert m == {"plan": "gold", "count": -3, "beta": True, "ratio": 1.5} and m["beta"] is True, m
p = load("tarvik_properties.plist")
assert p["apiKey"] == "key" and type(p["TarvikUserPropertySessionLength"]) is float, p
assert load("user_elapsed_times.plist") == {"checkout": 2.25}
assert load("event_data.plist") == {"message": "paid", "line_number": "118"}
print("ok")
)",
                           shellQuoted(*event->submissionFolderPath()));
    EXPECT_EQ(check.exitCode, 0) << check.output;
}

TEST_F(SubmissionFiles, MessageIsNoneWithoutTheKeyOrTheFile) {
    auto event = TVKEventSubmission::create();
    EXPECT_FALSE(event->message());
    event->saveEventSubmissionData({{"file_name", "a.cpp"}});
    EXPECT_FALSE(event->message());
}

TEST_F(SubmissionFiles, ScreenshotIsAJpegOfThePixelSize) {
    auto issue = TVKIssueSubmission::create();
    std::optional<Image> screenshot =
        Image::filled(160, 90, 2.0, {0.2, 0.4, 0.8, 1.0}, Image::Opaque);
    ASSERT_TRUE(screenshot);
    issue->saveScreenshot(*screenshot);
    EXPECT_THAT(issue->attachedFilesUrls(), Contains(issue->screenshotFilePath()));
    auto decoded =
        runCommand("djpeg -pnm " + shellQuoted(issue->screenshotFilePath()) + " | head -c 20");
    ASSERT_EQ(decoded.exitCode, 0) << decoded.output;
    EXPECT_THAT(decoded.output, ::testing::StartsWith("P6\n320 180\n255\n"));
}

using SubmissionScan = SubmissionTest;

TEST_F(SubmissionScan, FindsQueuedSubmissionsEventsFirstAndSkipsWhatIsNotOne) {
    Tarvik::sharedInstance().setDebug(true);
    auto issue = TVKIssueSubmission::create();
    issue->setSubmissionStatus(TVKSubmissionStatusQueued);
    auto event = TVKEventSubmission::create();
    event->setSubmissionStatus(TVKSubmissionStatusQueued);
    TVKEventSubmission::create();  // still Processing: never scanned
    writeFile(TVKEventSubmission::queuedFolderPath() + "/stray.txt", "x");
    fs::create_directories(TVKEventSubmission::queuedFolderPath() + "/old_attachments");
    test.advance(5);

    auto pending = TVKSubmission::processCacheFolderForSubmissions();
    ASSERT_EQ(pending.size(), 2u);
    EXPECT_EQ(pending[0]->uuid(), event->uuid());
    EXPECT_TRUE(pending[0]->isEventSubmissionKind());
    EXPECT_EQ(pending[1]->uuid(), issue->uuid());
    EXPECT_TRUE(pending[1]->isIssueSubmissionKind());
    EXPECT_EQ(pending[0]->submissionStatus(), TVKSubmissionStatusQueued);
    EXPECT_FALSE(pending[0]->urlsOfAlreadyCopiedFiles());
    EXPECT_EQ(pending[1]->retryCounter(), 0u);
    EXPECT_THAT(test.consoleLines(),
                Contains("Loaded list of pending event submissions (size: 1)"));
    EXPECT_THAT(test.consoleLines(),
                Contains("Loaded list of pending issue submissions (size: 1)"));
}

TEST(SubmissionStackFrames, ALineBreaksIntoIndexLibraryAndCode) {
    TestRuntime test;  // its host bundle's executable is "Host"
    Dictionary frame = TVKSubmission::stackFrameFromSymbol(
        "3   Host                                0x000055b4a4d1ac69 checkout(int) + 42", 7);
    EXPECT_EQ(
        frame,
        (Dictionary{
            {"index", 7}, {"lib", "Host"}, {"code", "checkout(int) + 42"}, {"app_frame", true}}));
    Dictionary library = TVKSubmission::stackFrameFromSymbol(
        "12  libc.so.6                           0x00007fbf7064524a 0x7fbf7061e000 + 160330", 0);
    EXPECT_EQ(library.at("lib"), Value("libc.so.6"));
    EXPECT_EQ(library.at("code"), Value("0x7fbf7061e000 + 160330"));
    EXPECT_EQ(library.at("app_frame"), Value(false));
    EXPECT_EQ(TVKSubmission::stackFrameFromSymbol("garbage", 0).at("lib"), Value(""));
}

}  // namespace
}  // namespace tarvik
