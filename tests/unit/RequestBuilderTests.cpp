#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/TVKSubmissionRequestBuilder.h"
#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/Image.h"
#include "support/DeliveryFixture.h"
#include "support/ExternalTools.h"
#include "support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <regex>
#include <sstream>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using testsupport::readFile;
using testsupport::runPython;
using testsupport::shellQuoted;
using testsupport::writeFile;

const std::string kBoundary = "----TarvikBoundaryText";

std::string field(const std::string& name, const std::string& value) {
    return "--" + kBoundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" +
           value + "\r\n";
}

// A started SDK on the Testing platform (fixed clock, device, bundle and locale) with the
// session, the logs and the host's defaults holding fixed text, so that bodies are reproducible.
class RequestBuilderTest : public testsupport::DeliveryTest {
  protected:
    RequestBuilderTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        Tarvik& tarvik = Tarvik::sharedInstance();
        tarvik.setUserIdentifier("user-7");
        tarvik.setUserEmail("ann@example.com");
        tarvik.setString("gold", "plan");
        tarvik.setIntValue(3, "seats");
        test.platform().userDefaults().setPersistentDomain({{"theme", "dark"}}, "com.example.host");
        TVKLogger::logMessage("tapped pay");
        TVKLogger::logSystemMessage("console line");
        TVKLogger::logDebugMessage("debug line", 1, "File.cpp", 7, "run");
        test.advance(12.5);
    }

    std::shared_ptr<TVKEventSubmission> event() {
        auto event = TVKEventSubmission::create();
        event->saveEventSubmissionData({{"message", "card declined"},
                                        {"file_name", "/src/app/Checkout.cpp"},
                                        {"method_name", "pay"},
                                        {"line_number", "118"}});
        event->saveMetadata(Tarvik::sharedInstance().metadata());
        event->saveUserProperties(Tarvik::sharedInstance().createTarvikProperties());
        gather(event);
        // The stack holds this run's addresses; a fixed one keeps the body reproducible.
        writeFile(event->stackFilePath(),
                  R"([{"app_frame":true,"code":"checkout() + 42","index":0,"lib":"Host"}])");
        return event;
    }

    std::shared_ptr<TVKIssueSubmission> issue() {
        auto issue = TVKIssueSubmission::create();
        issue->saveScreenshot(*Image::filled(32, 24, 2.0, {0.9, 0.2, 0.1, 1.0}, Image::Opaque));
        issue->saveMetadata(Tarvik::sharedInstance().metadata());
        Dictionary properties = Tarvik::sharedInstance().createTarvikProperties();
        properties[TarvikUserPropertyCommentsKey] = "It crashed\r\nwhen I paid";
        issue->saveUserProperties(properties);
        issue->saveUserElapsedTimes({{"checkout", 2.25}, {"login", 4.0}});
        gather(issue);
        return issue;
    }

    // An event that takes the host's files along, gathered.
    std::shared_ptr<TVKEventSubmission> eventWithHostFiles(const std::vector<std::string>& files) {
        auto submission = TVKEventSubmission::create();
        submission->setIncludeEventAttachments(true);
        for (const std::string& file : files) {
            submission->attachFileFromUrl(file);
        }
        gather(submission);
        return submission;
    }

    // The body with what differs from run to run replaced: the submission's identifier and
    // the real disk's figures.
    static std::string normalised(std::string body, const TVKSubmission& submission) {
        for (size_t at; (at = body.find(submission.uuid())) != std::string::npos;) {
            body.replace(at, submission.uuid().size(), "{{UUID}}");
        }
        for (const char* name : {"disk_used", "disk_total"}) {
            body = std::regex_replace(
                body, std::regex(std::string("(device_info\\[") + name + "\\]\"\r\n\r\n)[0-9]+"),
                "$1{{DISK}}");
        }
        return body;
    }

    // Compares with the fixture; TARVIK_WRITE_FIXTURES=1 writes it instead (a change of the
    // wire format, to be reviewed by hand).
    static void expectMatchesFixture(const TVKSubmission& submission, const std::string& name) {
        std::string body = normalised(readFile(submission.httpBodyFilePath()), submission);
        std::string path = std::string(TARVIK_TEST_SOURCE_DIR) + "/fixtures/" + name;
        if (std::getenv("TARVIK_WRITE_FIXTURES")) {
            writeFile(path, body);
        }
        std::string expected = readFile(path);
        ASSERT_FALSE(expected.empty()) << "missing fixture " << path;
        EXPECT_TRUE(body == expected) << "the body differs from " << path;
    }
};

// Parses a body with Python's own multipart parser and prints what it found, one part per
// line as JSON: {"name", "filename", "type", "value" (text) or "zip" (the archive's entries
// and their text) or "size"}.
const char* kParseBody = R"(
import email, email.policy, io, json, sys, zipfile
body = open(sys.argv[1], "rb").read()
head = b"Content-Type: multipart/form-data; boundary=----TarvikBoundaryText\r\n\r\n"
message = email.message_from_bytes(head + body, policy=email.policy.HTTP)
assert message.is_multipart() and not message.defects, message.defects
for part in message.iter_parts():
    name = part.get_param("name", header="content-disposition")
    filename = part.get_param("filename", header="content-disposition")
    payload = part.get_payload(decode=True)
    found = {"name": name, "filename": filename, "type": part.get_content_type()}
    if filename and filename.endswith(".zip"):
        with zipfile.ZipFile(io.BytesIO(payload)) as z:
            assert z.testzip() is None
            found["zip"] = {i.filename: z.read(i).decode("utf-8") for i in z.infolist()}
    elif filename:
        found["size"] = len(payload)
    else:
        found["value"] = payload.decode("utf-8")
    print(json.dumps(found, sort_keys=True))
)";

// The parts Python found, by name.
std::map<std::string, nlohmann::json> parsedParts(const std::string& bodyPath) {
    auto result = runPython(kParseBody, shellQuoted(bodyPath));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    std::map<std::string, nlohmann::json> parts;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        nlohmann::json part = nlohmann::json::parse(line);
        parts[part["name"]] = part;
    }
    return parts;
}

using RequestBuilderRequest = RequestBuilderTest;

TEST_F(RequestBuilderRequest, PostsTheSpoolFileWithTheHeadersInOrder) {
    auto submission = event();
    HttpRequest request = TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, "https://collector.test/v1/event/save.json");
    EXPECT_EQ(request.timeoutInterval, 60);
    EXPECT_EQ(request.bodyFilePath, submission->httpBodyFilePath());
    std::string length = std::to_string(fs::file_size(submission->httpBodyFilePath()));
    DeviceProbes& device = test.platform().device();
    EXPECT_EQ(request.headers,
              (std::vector<std::pair<std::string, std::string>>{
                  {"X-Tarvik-Api-Key", "key-123"},
                  {"X-Tarvik-Device-Type", "ios"},
                  {"X-Tarvik-Device-Identifier", device.identifierForVendor()},
                  {"X-Tarvik-Device-Name", device.deviceName()},
                  {"Content-Type", "multipart/form-data; boundary=----TarvikBoundaryText"},
                  {"Content-Length", length}}));
}

// A locale without a country (LANG=en) has no region and a language without a dangling "_";
// without a locale (LANG=C) there is neither; an empty vendor identifier is no header.
TEST_F(RequestBuilderRequest, LeavesOutWhatTheDeviceCannotTell) {
    testing::FakeDevice& device = test.platform().fakeDevice();
    device.setIdentifierForVendor("");
    device.setLocaleCountryCode(std::nullopt);
    auto submission = event();
    HttpRequest request = TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    for (const auto& [name, value] : request.headers) {
        EXPECT_FALSE(value.empty()) << name;
    }
    std::string body = readFile(submission->httpBodyFilePath());
    EXPECT_THAT(body, Not(HasSubstr("device_info[region]")));
    EXPECT_THAT(body, HasSubstr(field("device_info[lang]", "en")));

    device.setLocaleLanguageCode(std::nullopt);
    submission = event();
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    body = readFile(submission->httpBodyFilePath());
    EXPECT_THAT(body, Not(HasSubstr("device_info[region]")));
    EXPECT_THAT(body, Not(HasSubstr("device_info[lang]")));
}

using RequestBuilderGoldenBody = RequestBuilderTest;

TEST_F(RequestBuilderGoldenBody, EventBodyMatchesTheFixture) {
    auto submission = event();
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    expectMatchesFixture(*submission, "event_body.txt");
}

TEST_F(RequestBuilderGoldenBody, IssueBodyMatchesTheFixtureAndPythonReadsItAsWritten) {
    auto submission = issue();
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    expectMatchesFixture(*submission, "issue_body.txt");

    // An independent reading of the same bytes, so that the fixture is more than our own echo.
    auto parts = parsedParts(submission->httpBodyFilePath());
    std::string logs = submission->tarvikAttachmentsFolderPath();
    EXPECT_EQ(parts["comments"]["value"], "It crashed\r\nwhen I paid");
    EXPECT_EQ(parts["screenshot"]["size"], fs::file_size(submission->screenshotFilePath()));
    EXPECT_EQ(parts["system_logs"]["zip"]["system_logs.txt"], readFile(logs + "/system_logs.txt"));
    EXPECT_EQ(parts["user_defaults"]["zip"]["user_defaults.json"], R"({"theme":"dark"})");
    EXPECT_FALSE(fs::exists(logs + "/temp.zip"));  // no archive is left behind
}

using RequestBuilderFiles = RequestBuilderTest;

TEST_F(RequestBuilderFiles, TheSizeLimitAppliesToHostFilesOnly) {
    auto submission = eventWithHostFiles({hostFile("at-limit.png", std::string(102400, 'a')),
                                          hostFile("over-limit.png", std::string(102401, 'b'))});
    // An SDK log over the limit is still sent whole. The limit applies to what is sent, the
    // archive: random text (6 bits a byte) keeps it well over 100 KiB.
    std::mt19937 random(7);
    std::string log;
    for (int i = 0; i < 300000; ++i) {
        log += "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"[random() % 64];
    }
    writeFile(submission->systemLogsFilePath(), log);
    Tarvik::sharedInstance().setDebug(true);
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string body = readFile(submission->httpBodyFilePath());

    EXPECT_THAT(body, HasSubstr("filename=\"at-limit.png\"\r\nContent-Type: image/png\r\n\r\n" +
                                std::string(102400, 'a') + "\r\n"));
    EXPECT_THAT(body, Not(HasSubstr("over-limit.png")));
    EXPECT_THAT(test.consoleLines(), ::testing::Contains("Tarvik Warning - file (" +
                                                         submission->userAttachmentsFolderPath() +
                                                         "/over-limit.png) is too large: 102401"));
    // The left-out file leaves its bare line between two parts.
    EXPECT_THAT(body, HasSubstr("\r\n\r\n--" + kBoundary));
    auto parts = parsedParts(submission->httpBodyFilePath());
    EXPECT_EQ(parts["system_logs"]["zip"]["system_logs.txt"], log);
}

TEST_F(RequestBuilderFiles, HostFilesKeepTheirNamesTextIsZippedAndOtherTypesGoAsTheyAre) {
    auto submission =
        eventWithHostFiles({hostFile("dump.weird", "raw"), hostFile("notes.txt", "notes"),
                            hostFile("bad\xff name.bin", "odd")});
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string body = readFile(submission->httpBodyFilePath());
    EXPECT_THAT(body, HasSubstr("name=\"attachments[]\"; filename=\"dump.weird\"\r\n"
                                "Content-Type: application/octet-stream\r\n\r\nraw\r\n"));
    EXPECT_THAT(body, HasSubstr("name=\"attachments[]\"; filename=\"notes.zip\"\r\n"
                                "Content-Type: application/zip\r\n\r\nPK"));
    // A name that is not UTF-8 goes as its bytes and does not break the body.
    EXPECT_THAT(body, HasSubstr("filename=\"bad\xff name.bin\"\r\nContent-Type: "
                                "application/octet-stream\r\n\r\nodd\r\n"));
    EXPECT_FALSE(parsedParts(submission->httpBodyFilePath()).empty());
    EXPECT_EQ(TVKSubmissionRequestBuilder::contentTypeByFileExtension("JPG"), "image/jpeg");
}

// A body that was cut short (the app was killed while writing it) is written again, whole,
// whether the object still knows its files or was loaded from disk by a later run.
TEST_F(RequestBuilderFiles, ABodyCutShortIsWrittenAgainWithEveryFileItHadAfterARestartToo) {
    auto submission = eventWithHostFiles(
        {hostFile("notes.weird", "notes"), hostFile("big.png", std::string(102401, 'b'))});
    submission->setSubmissionStatus(TVKSubmissionStatusQueued);
    std::string bodyPath = submission->httpBodyFilePath();
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string whole = readFile(bodyPath);
    ASSERT_THAT(whole, HasSubstr("filename=\"notes.weird\""));

    auto reloaded = TVKEventSubmission::withUUID(submission->uuid());
    reloaded->setCreatedDate(submission->createdDate());
    // A crash while zipping leaves an archive behind; it is no file of the submission.
    writeFile(submission->tarvikAttachmentsFolderPath() + "/temp.zip", "stale");
    for (const auto& rebuilt : {std::static_pointer_cast<TVKSubmission>(submission),
                                std::static_pointer_cast<TVKSubmission>(reloaded)}) {
        SCOPED_TRACE(rebuilt == submission ? "same object" : "loaded from disk");
        fs::resize_file(bodyPath, whole.size() - 10);
        TVKSubmissionRequestBuilder(rebuilt).buildPOSTSubmissionRequest();
        EXPECT_TRUE(readFile(bodyPath) == whole) << readFile(bodyPath).size() << " bytes";
    }
}

// Attachments are copied as they are when the report is made, one copy per file: a link
// gives the file it points at, and files of the same name from different folders are all kept.
TEST_F(RequestBuilderFiles, AnAttachedLinkIsCopiedAsTheFileItPointsAt) {
    fs::create_directories(test.root() + "/host/sub");
    std::string live = hostFile("live.weird", "before");
    hostFile("sub/target.weird", "target");
    fs::create_symlink("sub/target.weird", test.root() + "/host/rel.weird");
    fs::create_symlink(live, test.root() + "/host/abs.weird");
    auto submission =
        eventWithHostFiles({test.root() + "/host/rel.weird", test.root() + "/host/abs.weird"});
    writeFile(live, "after");
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string copies = submission->userAttachmentsFolderPath();
    for (const char* name : {"rel.weird", "abs.weird"}) {
        EXPECT_FALSE(fs::is_symlink(copies + "/" + name)) << name;
    }
    std::string body = readFile(submission->httpBodyFilePath());
    EXPECT_THAT(body, HasSubstr("filename=\"rel.weird\"\r\nContent-Type: "
                                "application/octet-stream\r\n\r\ntarget\r\n"));
    EXPECT_THAT(body, HasSubstr("filename=\"abs.weird\"\r\nContent-Type: "
                                "application/octet-stream\r\n\r\nbefore\r\n"));
}

TEST_F(RequestBuilderFiles, AttachmentsOfTheSameNameAreAllSentUnderNamesOfTheirOwn) {
    for (const char* folder : {"a", "b", "c"}) {
        fs::create_directories(test.root() + "/host/" + folder);
    }
    auto submission =
        eventWithHostFiles({hostFile("a/log.weird", "first"), hostFile("b/log.weird", "second"),
                            hostFile("c/log.weird", "third"), hostFile("log-2.weird", "own")});
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string body = readFile(submission->httpBodyFilePath());
    std::string part = "\"\r\nContent-Type: application/octet-stream\r\n\r\n";
    EXPECT_THAT(body, HasSubstr("filename=\"log.weird" + part + "first\r\n"));
    EXPECT_THAT(body, HasSubstr("filename=\"log-2.weird" + part + "second\r\n"));
    EXPECT_THAT(body, HasSubstr("filename=\"log-3.weird" + part + "third\r\n"));
    EXPECT_THAT(body, HasSubstr("filename=\"log-2-2.weird" + part + "own\r\n"));
}

TEST_F(RequestBuilderFiles, BrokenFilesAndAnUnknownBatteryStillGiveAWellFormedBody) {
    auto submission = event();
    std::string folder = *submission->submissionFolderPath();
    writeFile(folder + "/tarvik_properties.plist", "not a property list");
    writeFile(folder + "/user_elapsed_times.plist", "");
    fs::remove(folder + "/event_data.plist");
    submission->saveMetadata(
        {{"nested", Dictionary{{"a", 1}}}, {"when", Date(std::chrono::seconds(1577836800))}});
    fs::remove(submission->debugLogsFilePath());  // vanished between listing and appending
    // A battery that cannot tell its level reads -1, which is sent as its absolute value.
    test.platform().fakeDevice().setBatteryStatus({-1.0, BatteryState::Unknown});
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string body = readFile(submission->httpBodyFilePath());
    EXPECT_THAT(body, HasSubstr(field("user_properties[session_length]", "0.000000")));
    EXPECT_THAT(body, HasSubstr(field("metadata[when]", "2020-01-01 00:00:00 +0000")));
    EXPECT_THAT(body, HasSubstr(field("metadata[nested]", "{\n    a = 1;\n}")));
    EXPECT_THAT(body, HasSubstr(field("device_info[battery_percentage]", "100.000000")));
    EXPECT_THAT(body, Not(HasSubstr("name=\"message\"")));
    // Python's parser reads every part without a defect.
    EXPECT_FALSE(parsedParts(submission->httpBodyFilePath()).empty());
}

}  // namespace
}  // namespace tarvik
