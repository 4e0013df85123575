#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/TVKSubmissionRequestBuilder.h"
#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/Image.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::TestRuntime;
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
// logs and the host's defaults holding fixed text, so that bodies are reproducible.
class RequestBuilderTest : public ::testing::Test {
  protected:
    RequestBuilderTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        TarvikDomainName = "collector.test";
        Tarvik& tarvik = Tarvik::startWithAPIKey("key-123", TarvikProcessTypeManual, false);
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

    void gather(const std::shared_ptr<TVKSubmission>& submission) {
        std::atomic<bool> completed{false};
        submission->copyAllFilesWithCompletionHandler([&](auto) { completed = true; });
        test.drain();
        ASSERT_TRUE(completed.load());
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
    static void expectMatchesFixture(const std::string& body, const std::string& name) {
        std::string path = std::string(TARVIK_TEST_SOURCE_DIR) + "/fixtures/" + name;
        if (std::getenv("TARVIK_WRITE_FIXTURES")) {
            writeFile(path, body);
        }
        std::string expected = readFile(path);
        ASSERT_FALSE(expected.empty()) << "missing fixture " << path;
        EXPECT_TRUE(body == expected) << "the body differs from " << path;
    }

    TestRuntime test;
};

using RequestBuilderRequest = RequestBuilderTest;

TEST_F(RequestBuilderRequest, PostsTheSpoolFileWithTheHeadersInOrder) {
    auto submission = event();
    TVKSubmissionRequestBuilder builder(submission);
    HttpRequest request = builder.buildPOSTSubmissionRequest();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, "https://collector.test/v1/event/save.json");
    EXPECT_EQ(request.cachePolicy, 1);
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
    EXPECT_TRUE(builder.isEventSubmission());
}

TEST_F(RequestBuilderRequest, TheBodyIsWrittenOnceAndOnlyItsLengthReadAgain) {
    auto submission = event();
    HttpRequest first = TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string body = readFile(submission->httpBodyFilePath());
    Tarvik::sharedInstance().setString("changed", "plan");
    submission->saveMetadata(Tarvik::sharedInstance().metadata());
    HttpRequest second = TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    EXPECT_EQ(readFile(submission->httpBodyFilePath()), body);
    EXPECT_EQ(second.valueForHeader("Content-Length"), first.valueForHeader("Content-Length"));
    EXPECT_TRUE(body.ends_with("--" + kBoundary + "--\r\n"));
}

TEST_F(RequestBuilderRequest, ABodyCutShortIsWrittenAgain) {
    // As left by an app killed while writing it.
    auto submission = event();
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string body = readFile(submission->httpBodyFilePath());
    fs::resize_file(submission->httpBodyFilePath(), body.size() / 2);
    HttpRequest rebuilt = TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    EXPECT_EQ(readFile(submission->httpBodyFilePath()), body);
    EXPECT_EQ(rebuilt.valueForHeader("Content-Length"), std::to_string(body.size()));
}

using RequestBuilderGoldenBody = RequestBuilderTest;

TEST_F(RequestBuilderGoldenBody, EventBodyMatchesTheFixture) {
    auto submission = event();
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    expectMatchesFixture(normalised(readFile(submission->httpBodyFilePath()), *submission),
                         "event_body.txt");
}

TEST_F(RequestBuilderGoldenBody, IssueBodyMatchesTheFixture) {
    auto submission = issue();
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    expectMatchesFixture(normalised(readFile(submission->httpBodyFilePath()), *submission),
                         "issue_body.txt");
}

// Parses a body with Python's own multipart parser and prints what it found, one part per
// line as JSON: {"name", "filename", "type", "value" (text) or "zip" (the archive's entries
// and their bytes, hex)}.
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
            found["zip"] = {i.filename: z.read(i).hex() for i in z.infolist()}
    elif filename:
        found["size"] = len(payload)
    else:
        found["value"] = payload.decode("utf-8")
    print(json.dumps(found, sort_keys=True))
)";

std::vector<nlohmann::json> parsedParts(const std::string& bodyPath) {
    auto result = runPython(kParseBody, shellQuoted(bodyPath));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    std::vector<nlohmann::json> parts;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        parts.push_back(nlohmann::json::parse(line));
    }
    return parts;
}

std::string hex(const std::string& bytes) {
    std::string out;
    for (unsigned char c : bytes) {
        out += fmt::format("{:02x}", c);
    }
    return out;
}

using RequestBuilderParsedElsewhere = RequestBuilderTest;

TEST_F(RequestBuilderParsedElsewhere, EveryFieldAndFileComesBackAsWritten) {
    auto submission = issue();
    std::string logs = submission->tarvikAttachmentsFolderPath();
    std::string systemLog = readFile(logs + "/system_logs.txt");
    std::string screenshot = readFile(submission->screenshotFilePath());
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();

    std::map<std::string, nlohmann::json> byName;
    for (const auto& part : parsedParts(submission->httpBodyFilePath())) {
        byName[part["name"]] = part;
    }
    EXPECT_EQ(byName["uuid"]["value"], submission->uuid());
    EXPECT_EQ(byName["reported_date"]["value"], "2026-01-02T03:04:17+0000");
    EXPECT_EQ(byName["comments"]["value"], "It crashed\r\nwhen I paid");
    EXPECT_EQ(byName["user_properties[identifier]"]["value"], "user-7");
    EXPECT_EQ(byName["user_properties[session_length]"]["value"], "12.500000");
    EXPECT_EQ(byName["metadata[seats]"]["value"], "3");
    EXPECT_EQ(byName["benchmark[checkout]"]["value"], "2.25");
    EXPECT_EQ(byName["benchmark[login]"]["value"], "4");
    EXPECT_EQ(byName["device_info[battery_charging]"]["value"], "0");
    EXPECT_EQ(byName["screenshot"]["filename"], "screenshot.jpg");
    EXPECT_EQ(byName["screenshot"]["type"], "image/jpeg");
    EXPECT_EQ(byName["screenshot"]["size"], screenshot.size());
    EXPECT_EQ(byName["system_logs"]["filename"], "system_logs.zip");
    EXPECT_EQ(byName["system_logs"]["type"], "application/zip");
    EXPECT_EQ(byName["system_logs"]["zip"]["system_logs.txt"], hex(systemLog));
    EXPECT_EQ(byName["user_defaults"]["zip"]["user_defaults.json"], hex(R"({"theme":"dark"})"));
    EXPECT_FALSE(byName.contains("created_date"));
    // No archive is left behind.
    EXPECT_FALSE(fs::exists(logs + "/temp.zip"));
}

using RequestBuilderFiles = RequestBuilderTest;

TEST_F(RequestBuilderFiles, TheLimitAppliesToHostFilesOnly) {
    fs::create_directories(test.root() + "/host");
    std::string atLimit = test.root() + "/host/at-limit.png";
    std::string overLimit = test.root() + "/host/over-limit.png";
    writeFile(atLimit, std::string(102400, 'a'));
    writeFile(overLimit, std::string(102401, 'b'));
    auto submission = TVKEventSubmission::create();
    submission->setIncludeEventAttachments(true);
    submission->attachFileFromUrl(atLimit);
    submission->attachFileFromUrl(overLimit);
    gather(submission);
    // An SDK log over the limit is still sent whole.
    writeFile(submission->systemLogsFilePath(), std::string(300000, 's'));
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
    auto systemLog = std::find_if(parts.begin(), parts.end(),
                                  [](const auto& p) { return p["name"] == "system_logs"; });
    ASSERT_NE(systemLog, parts.end());
    EXPECT_EQ((*systemLog)["zip"]["system_logs.txt"].get<std::string>().size(), 600000u);
}

TEST_F(RequestBuilderFiles, UnknownExtensionsAreOctetStreamAndTextIsZipped) {
    EXPECT_EQ(TVKSubmissionRequestBuilder::contentTypeByFileExtension("weird"),
              "application/octet-stream");
    EXPECT_EQ(TVKSubmissionRequestBuilder::contentTypeByFileExtension("JPG"), "image/jpeg");
    fs::create_directories(test.root() + "/host");
    writeFile(test.root() + "/host/dump.weird", "raw");
    writeFile(test.root() + "/host/notes.txt", "notes");
    auto submission = TVKEventSubmission::create();
    submission->setIncludeEventAttachments(true);
    submission->attachFileFromUrl(test.root() + "/host/dump.weird");
    submission->attachFileFromUrl(test.root() + "/host/notes.txt");
    gather(submission);
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string body = readFile(submission->httpBodyFilePath());
    EXPECT_THAT(body, HasSubstr("name=\"attachments[]\"; filename=\"dump.weird\"\r\n"
                                "Content-Type: application/octet-stream\r\n\r\nraw\r\n"));
    EXPECT_THAT(body, HasSubstr("name=\"attachments[]\"; filename=\"notes.zip\"\r\n"
                                "Content-Type: application/zip\r\n\r\nPK"));
    EXPECT_FALSE(fs::exists(*submission->submissionFolderPath() + "/temp.zip"));
}

using RequestBuilderKinds = RequestBuilderTest;

TEST_F(RequestBuilderKinds, CommentsOnlyForIssuesThatHaveThem) {
    auto withoutComments = TVKIssueSubmission::create();
    withoutComments->saveUserProperties(Tarvik::sharedInstance().createTarvikProperties());
    TVKSubmissionRequestBuilder(withoutComments).buildPOSTSubmissionRequest();
    EXPECT_THAT(readFile(withoutComments->httpBodyFilePath()), Not(HasSubstr("name=\"comments\"")));

    auto eventWithComments = TVKEventSubmission::create();
    Dictionary properties = Tarvik::sharedInstance().createTarvikProperties();
    properties[TarvikUserPropertyCommentsKey] = "ignored";
    eventWithComments->saveUserProperties(properties);
    TVKSubmissionRequestBuilder(eventWithComments).buildPOSTSubmissionRequest();
    std::string body = readFile(eventWithComments->httpBodyFilePath());
    EXPECT_THAT(body, Not(HasSubstr("name=\"comments\"")));
    EXPECT_THAT(body, HasSubstr("name=\"created_date\""));
    EXPECT_THAT(body, Not(HasSubstr("reported_date")));
}

TEST_F(RequestBuilderKinds, ASubmissionLoadedFromDiskHasNoFileParts) {
    auto original = event();
    original->setSubmissionStatus(TVKSubmissionStatusQueued);
    auto loaded = TVKEventSubmission::withUUID(original->uuid());
    TVKSubmissionRequestBuilder(loaded).buildPOSTSubmissionRequest();
    std::string body = readFile(loaded->httpBodyFilePath());
    EXPECT_THAT(body, HasSubstr(field("message", "card declined")));
    EXPECT_THAT(body, Not(HasSubstr("filename=")));
}

using RequestBuilderBadInput = RequestBuilderTest;

TEST_F(RequestBuilderBadInput, BrokenOrOddFilesStillGiveAWellFormedBody) {
    auto submission = event();
    std::string folder = *submission->submissionFolderPath();
    writeFile(folder + "/tarvik_properties.plist", "not a property list");
    writeFile(folder + "/user_elapsed_times.plist", "");
    fs::remove(folder + "/event_data.plist");
    submission->saveMetadata(
        {{"nested", Dictionary{{"a", 1}}}, {"when", Date(std::chrono::seconds(1577836800))}});
    fs::remove(submission->debugLogsFilePath());  // vanished between listing and appending
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    std::string body = readFile(submission->httpBodyFilePath());
    EXPECT_THAT(body, HasSubstr(field("user_properties[session_length]", "0.000000")));
    EXPECT_THAT(body, HasSubstr(field("metadata[when]", "2020-01-01 00:00:00 +0000")));
    EXPECT_THAT(body, HasSubstr(field("metadata[nested]", "{\n    a = 1;\n}")));
    EXPECT_THAT(body, Not(HasSubstr("name=\"message\"")));
    // Python's parser reads every part without a defect.
    EXPECT_FALSE(parsedParts(submission->httpBodyFilePath()).empty());
}

TEST_F(RequestBuilderBadInput, ANonUtf8FileNameDoesNotBreakTheBody) {
    fs::create_directories(test.root() + "/host");
    std::string odd = test.root() + "/host/bad\xff name.bin";
    writeFile(odd, "odd");
    auto submission = TVKEventSubmission::create();
    submission->setIncludeEventAttachments(true);
    submission->attachFileFromUrl(odd);
    gather(submission);
    TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();
    EXPECT_THAT(readFile(submission->httpBodyFilePath()),
                HasSubstr("filename=\"bad\xff name.bin\"\r\nContent-Type: "
                          "application/octet-stream\r\n\r\nodd\r\n"));
    EXPECT_FALSE(parsedParts(submission->httpBodyFilePath()).empty());
}

}  // namespace
}  // namespace tarvik
