#include <tarvik/Tarvik.h>

#include "Helpers/NSString+Tarvik.h"
#include "Helpers/TVKEventConfigurationManager.h"
#include "Helpers/TVKSettingsManager.h"
#include "Models/TVKEventSubmission.h"
#include "Platform/JsonValue.h"
#include "Platform/PropertyList.h"
#include "support/DeliveryFixture.h"
#include "support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace tarvik::eventtests {

// Outside any anonymous namespace, so that the stack names it.
[[gnu::noinline]] void recordFromTheHost(const std::string& message) {
    TARVIK_RECORD_EVENT(message, false);
    asm volatile("");  // keeps the call from becoming a tail call
}

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using testsupport::DeliveryTest;
using testsupport::readFile;
using testsupport::writeFile;

std::string field(const std::string& name, const std::string& value) {
    return "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
}

class EventRecording : public DeliveryTest {
  protected:
    std::vector<fs::path> eventFolders() {
        std::vector<fs::path> folders;
        for (const char* status : {"Processing", "Queued", "Sent"}) {
            fs::path statusFolder = TVKEventSubmission::submissionTypeFolderPath() + "/" + status;
            for (const auto& entry : fs::directory_iterator(statusFolder)) {
                folders.push_back(entry.path());
            }
        }
        return folders;
    }

    std::string hostAttachment() {
        // Not a text type, so it travels as it is rather than zipped.
        std::string path = test.root() + "/receipt.bin";
        writeFile(path, "receipt 42");
        return path;
    }
};

TEST_F(EventRecording, AnEventArrivesWithItsSourcePositionAndTheSessionsData) {
    Tarvik& tarvik = Tarvik::sharedInstance();
    tarvik.setUserIdentifier("user-7");
    tarvik.setString("gold", "plan");
    tarvik.recordEvent("checkout failed", "/src/app/Checkout.cpp", "pay", 128, false);
    test.drain();

    auto sent = submissionsSent();
    ASSERT_EQ(sent.size(), 1u);
    const std::string& body = sent[0].body;
    EXPECT_EQ(sent[0].request.url, "https://collector.test/v1/event/save.json");
    EXPECT_THAT(body, HasSubstr(field("message", "checkout failed")));
    EXPECT_THAT(body, HasSubstr(field("file_name", "/src/app/Checkout.cpp")));
    EXPECT_THAT(body, HasSubstr(field("method_name", "pay")));
    EXPECT_THAT(body, HasSubstr(field("line_number", "128")));
    EXPECT_THAT(body, HasSubstr(field("user_properties[identifier]", "user-7")));
    EXPECT_THAT(body, HasSubstr(field("metadata[plan]", "gold")));
    EXPECT_THAT(body, HasSubstr("filename=\"stack_trace.zip\""));
    EXPECT_THAT(eventFolders(), IsEmpty());
}

TEST_F(EventRecording, LinesKeepTheirSign) {
    Tarvik& tarvik = Tarvik::sharedInstance();
    tarvik.recordEvent("zero", "a.cpp", "f", 0, false);
    tarvik.recordEvent("negative", "a.cpp", "f", -7, false);
    test.drain();
    auto sent = submissionsSent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_THAT(sent[0].body + sent[1].body, HasSubstr(field("line_number", "0")));
    EXPECT_THAT(sent[0].body + sent[1].body, HasSubstr(field("line_number", "-7")));
}

TEST_F(EventRecording, NamesThatAreNotUtf8AreLeftOut) {
    Tarvik::sharedInstance().recordEvent("odd names", "bad\xFF.cpp", "f\xC3", 5, false);
    test.drain();
    auto sent = submissionsSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_THAT(sent[0].body, Not(HasSubstr("name=\"file_name\"")));
    EXPECT_THAT(sent[0].body, Not(HasSubstr("name=\"method_name\"")));
    EXPECT_THAT(sent[0].body, HasSubstr(field("line_number", "5")));
}

TEST_F(EventRecording, AttachmentsTravelOnlyWhenAskedFor) {
    Tarvik& tarvik = Tarvik::sharedInstance();
    ASSERT_TRUE(tarvik.addAttachmentWithFileUrl(hostAttachment()));
    tarvik.recordEvent("without", "a.cpp", "f", 1, false);
    test.drain();
    tarvik.recordEvent("with", "a.cpp", "f", 2, true);
    test.drain();
    auto sent = submissionsSent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_THAT(sent[0].body, Not(HasSubstr("receipt 42")));
    EXPECT_THAT(sent[1].body, HasSubstr("filename=\"receipt.bin\""));
    EXPECT_THAT(sent[1].body, HasSubstr("receipt 42"));
}

TEST_F(EventRecording, DisabledOrMutedEventsLeaveNothingOnDisk) {
    TVKSettingsManager::setEventSubmissionEnabled(false);
    Tarvik::sharedInstance().recordEvent("off", "a.cpp", "f", 1, true);
    test.drain();
    EXPECT_THAT(eventFolders(), IsEmpty());

    TVKSettingsManager::setEventSubmissionEnabled(true);
    TVKEventConfigurationManager::setMutedMessages(Array{tarvik_MD5Digest("Muted")});
    Tarvik::sharedInstance().recordEvent("Muted", "a.cpp", "f", 1, true);
    test.drain();
    EXPECT_THAT(eventFolders(), IsEmpty());
    EXPECT_TRUE(submissionsSent().empty());

    // Titles are compared exactly: another case is another title.
    Tarvik::sharedInstance().recordEvent("muted", "a.cpp", "f", 1, true);
    test.drain();
    EXPECT_EQ(submissionsSent().size(), 1u);
}

TEST_F(EventRecording, TheMacroFillsInTheCallerAndTheStackStartsThere) {
    setSubmissionAnswer([] { return HttpResult::noResponse("offline"); });
    recordFromTheHost("from the host");
    test.drain();
    auto folders = eventFolders();
    ASSERT_EQ(folders.size(), 1u);
    std::optional<Value> data = plist::readFile(folders[0] / "event_data.plist");
    ASSERT_TRUE(data);
    EXPECT_EQ(data->find("message")->description(), "from the host");
    EXPECT_EQ(data->find("method_name")->description(), "recordFromTheHost");
    EXPECT_THAT(data->find("file_name")->description(),
                HasSubstr("/tests/unit/EventRecordingTests.cpp"));

    std::optional<Value> stack =
        json::parse(readFile(folders[0] / "tarvik_attachments/stack_trace.json"));
    ASSERT_TRUE(stack && stack->isArray() && !stack->asArray()->empty());
    const Value& first = stack->asArray()->front();
    ASSERT_NE(first.find("code"), nullptr);
    EXPECT_THAT(first.find("code")->description(), HasSubstr("recordFromTheHost"));
}

}  // namespace
}  // namespace tarvik::eventtests
