#pragma once

#include <tarvik/Tarvik.h>

#include "Models/TVKEventSubmission.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace tarvik::testsupport {

// An answer of the service with a JSON (or any other text) body.
HttpResult answerWithBody(long status, const std::string& text);

// A started SDK on the Testing platform whose fake service switches events on when asked for
// its configuration and answers every submission with `setSubmissionAnswer` (200 by default).
class DeliveryTest : public ::testing::Test {
  protected:
    explicit DeliveryTest(bool debug = false);
    ~DeliveryTest() override;

    testing::FakeHttpTransport& transport() { return test.platform().fakeHttpTransport(); }
    void setSubmissionAnswer(std::function<HttpResult()> answer);
    // The event configuration document the service hands out.
    void setConfigurationAnswer(std::string document);
    // The submissions (POST requests) sent so far.
    std::vector<testing::FakeHttpTransport::Exchange> submissionsSent();
    // An event with its data saved, not yet gathered or sent.
    std::shared_ptr<TVKEventSubmission> makeEvent(const std::string& message = "paid");
    std::string queuedFolderOf(const TVKSubmission& submission) const;
    // Gathers the submission's files (logs, defaults, attachments) and waits until they are in.
    void gather(const std::shared_ptr<TVKSubmission>& submission);
    // A file of the host application's, outside the SDK's folders.
    std::string hostFile(const std::string& name, const std::string& content = "data");

    testing::TestRuntime test;

  private:
    std::string previousDomain_;
    mutable std::mutex mutex_;
    std::function<HttpResult()> submissionAnswer_;
    std::string configurationDocument_ = R"({"enabled": true, "check_interval": 15})";
};

}  // namespace tarvik::testsupport
