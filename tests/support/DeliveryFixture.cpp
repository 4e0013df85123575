#include "support/DeliveryFixture.h"

#include "support/Files.h"

#include <atomic>
#include <filesystem>

namespace tarvik::testsupport {

HttpResult answerWithBody(long status, const std::string& text) {
    return HttpResult::answer(status, Data(text.begin(), text.end()));
}

DeliveryTest::DeliveryTest(bool debug)
    : previousDomain_(TarvikDomainName), submissionAnswer_([] { return HttpResult::answer(200); }) {
    TarvikDomainName = "collector.test";
    transport().setResponder([this](const HttpRequest& request) {
        std::lock_guard lock(mutex_);
        if (request.method == "GET") {
            return answerWithBody(200, configurationDocument_);
        }
        return submissionAnswer_();
    });
    Tarvik::startWithAPIKey("key-123", TarvikProcessTypeManual, debug);
    test.drain();
}

DeliveryTest::~DeliveryTest() {
    TarvikDomainName = previousDomain_;
}

void DeliveryTest::setSubmissionAnswer(std::function<HttpResult()> answer) {
    std::lock_guard lock(mutex_);
    submissionAnswer_ = std::move(answer);
}

void DeliveryTest::setConfigurationAnswer(std::string document) {
    std::lock_guard lock(mutex_);
    configurationDocument_ = std::move(document);
}

std::vector<testing::FakeHttpTransport::Exchange> DeliveryTest::submissionsSent() {
    std::vector<testing::FakeHttpTransport::Exchange> posts;
    for (auto& exchange : transport().exchanges()) {
        if (exchange.request.method == "POST") {
            posts.push_back(std::move(exchange));
        }
    }
    return posts;
}

std::shared_ptr<TVKEventSubmission> DeliveryTest::makeEvent(const std::string& message) {
    auto event = TVKEventSubmission::create();
    event->saveEventSubmissionData({{"message", message}});
    return event;
}

std::string DeliveryTest::queuedFolderOf(const TVKSubmission& submission) const {
    return *submission.submissionFolderPathForStatus(TVKSubmissionStatusQueued);
}

void DeliveryTest::gather(const std::shared_ptr<TVKSubmission>& submission) {
    std::atomic<bool> completed{false};
    submission->copyAllFilesWithCompletionHandler([&](auto) { completed = true; });
    test.drain();
    ASSERT_TRUE(completed.load());
}

std::string DeliveryTest::hostFile(const std::string& name, const std::string& content) {
    std::filesystem::create_directories(test.root() + "/host");
    std::string path = test.root() + "/host/" + name;
    writeFile(path, content);
    return path;
}

}  // namespace tarvik::testsupport
