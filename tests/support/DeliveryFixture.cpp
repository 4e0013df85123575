#include "support/DeliveryFixture.h"

#include "Helpers/TVKSettingsManager.h"

namespace tarvik::testsupport {

namespace {
Data bytesOf(const std::string& text) {
    return Data(text.begin(), text.end());
}
}  // namespace

DeliveryTest::DeliveryTest(bool debug)
    : previousDomain_(TarvikDomainName), submissionAnswer_([] { return HttpResult::answer(200); }) {
    TarvikDomainName = "collector.test";
    transport().setResponder([this](const HttpRequest& request) {
        std::lock_guard lock(mutex_);
        if (request.method == "GET") {
            return HttpResult::answer(200, bytesOf(configurationDocument_));
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

std::size_t DeliveryTest::configurationRequestCount() {
    std::size_t count = 0;
    for (const auto& exchange : transport().exchanges()) {
        count += exchange.request.method == "GET" ? 1 : 0;
    }
    return count;
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

}  // namespace tarvik::testsupport
