#include "Helpers/TVKSubmissionOperation.h"

#include <tarvik/Tarvik.h>

#include "Helpers/TVKEventConfigurationManager.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/TVKSubmissionRequestBuilder.h"
#include "Helpers/TVKTrustManager.h"
#include "Models/TVKEventSubmission.h"
#include "Platform/JsonValue.h"
#include "Platform/Runtime.h"
#include "Public/DebugConsole.h"

#include <set>
#include <string>

namespace tarvik {

namespace {

constexpr long kStatusOK = 200;
constexpr long kStatusBadRequest = 400;
constexpr long kStatusUnauthorized = 401;

// A mute list from the answer; a missing or malformed member empties the list.
std::optional<Array> digestListAt(const Value& ignored, const std::string& key) {
    const Value* list = ignored.find(key);
    if (!list || !list->isArray()) {
        return std::nullopt;
    }
    return *list->asArray();
}

}  // namespace

class TVKSubmissionOperation::SubmissionsInQueue {
  public:
    bool enter(const std::string& uuid) {
        std::lock_guard lock(mutex_);
        return uuids_.insert(uuid).second;
    }
    void leave(const std::string& uuid) {
        std::lock_guard lock(mutex_);
        uuids_.erase(uuid);
    }

  private:
    std::mutex mutex_;
    std::set<std::string> uuids_;
};

TVKSubmissionOperation::TVKSubmissionOperation(std::shared_ptr<TVKSubmission> submission)
    : submission_(std::move(submission)) {
    submission_->setSubmissionStatus(TVKSubmissionStatusQueued);
    requestBuilder_ = std::make_unique<TVKSubmissionRequestBuilder>(submission_);
}

TVKSubmissionOperation::~TVKSubmissionOperation() {
    // Dropped from the queue without running (the process is ending).
    leaveQueue();
}

bool TVKSubmissionOperation::enqueue(std::shared_ptr<TVKSubmissionOperation> operation) {
    // The retry pass reloads every queued submission each minute; a send that hangs must not
    // have them queued again behind it, pass after pass.
    Runtime& runtime = Runtime::current();
    auto inQueue = runtime.sharedInstance<SubmissionsInQueue>();
    if (!inQueue->enter(operation->submission_->uuid())) {
        return false;
    }
    {
        std::lock_guard lock(operation->finishMutex_);
        operation->inQueue_ = std::move(inQueue);
    }
    runtime.operationQueue().addOperation(
        [operation = std::move(operation)](OperationQueue::Finish finish) {
            operation->start(std::move(finish));
        });
    return true;
}

void TVKSubmissionOperation::leaveQueue() {
    std::shared_ptr<SubmissionsInQueue> inQueue;
    {
        std::lock_guard lock(finishMutex_);
        inQueue.swap(inQueue_);
    }
    if (inQueue) {
        inQueue->leave(submission_->uuid());
    }
}

void TVKSubmissionOperation::start(OperationQueue::Finish finish) {
    {
        std::lock_guard lock(finishMutex_);
        finish_ = std::move(finish);
    }
    if (isCancelled()) {
        completed_.store(true);
        finishMainNSOperationMethod();
        return;
    }
    running_.store(true);
    Runtime::current().detachThread([self = shared_from_this()] { self->main(); });
}

void TVKSubmissionOperation::finishMainNSOperationMethod() {
    running_.store(false);
    completed_.store(true);
    // Its fate is settled (a failure has set its retry date): a later pass may queue it again.
    leaveQueue();
    OperationQueue::Finish finish;
    {
        std::lock_guard lock(finishMutex_);
        finish.swap(finish_);
    }
    if (finish) {
        finish();
    }
}

bool TVKSubmissionOperation::isEventSubmission() const {
    return tarvik::isEventSubmission(*submission_);
}

bool TVKSubmissionOperation::isMutedEvent() const {
    auto event = std::dynamic_pointer_cast<TVKEventSubmission>(submission_);
    if (!event || !isEventSubmission()) {
        return false;
    }
    return !TVKEventConfigurationManager::shouldUploadDataForEventTitle(event->message());
}

void TVKSubmissionOperation::main() {
    send();
    finishMainNSOperationMethod();
}

std::optional<HttpResult> TVKSubmissionOperation::send() {
    HttpRequest request = requestBuilder_->buildPOSTSubmissionRequest();
    if (isMutedEvent()) {
        // A dropped event is the moment to ask the service again whether events are wanted.
        TVKEventConfigurationManager::startTimer();
        logToConsoleIfDebug("Tarvik -- the following event is muted, removing: " +
                            submission_->uuid());
        submission_->removeFromPending();
        return std::nullopt;
    }
    HttpResult result = Runtime::current().platform().httpTransport().perform(
        request, TVKTrustManager::sessionDelegate());
    handleResult(result);
    return result;
}

void TVKSubmissionOperation::handleResult(const HttpResult& result) {
    if (result.response) {
        long status = result.response->statusCode;
        if (status == kStatusOK) {
            std::optional<Value> answer = json::parseDocument(result.response->body);
            if (!answer) {
                logToConsoleIfDebug("Error while trying to decode JSON data");
            } else if (const Value* event = answer->find("event")) {
                applyEventSettings(*event);
            }
        }
        if (status == kStatusOK || status == kStatusBadRequest || status == kStatusUnauthorized) {
            if (status == kStatusBadRequest) {
                logToConsoleIfDebug(
                    "Error -- received message from backend about malformed request, removing "
                    "submission...");
            }
            submission_->removeFromPending();
        } else {
            Runtime::current().notificationCenter().post(TarvikNotificationDidFailSubmission,
                                                         submission_);
        }
    }
    if (result.error) {
        logToConsoleIfDebug(
            "Error -- received error while trying to post submission to backend server: " +
            *result.error);
    }
}

void TVKSubmissionOperation::applyEventSettings(const Value& event) {
    if (!event.isDictionary()) {
        return;
    }
    const Value* enabledValue = event.find("enabled");
    bool enabled = enabledValue && enabledValue->boolValue();
    TVKSettingsManager::setEventSubmissionEnabled(enabled);
    if (!enabled) {
        // The service gives minutes; the interval is in seconds.
        const Value* minutes = event.find("check_interval");
        float interval = (minutes ? static_cast<float>(minutes->doubleValue()) : 0.0f) * 60.0f;
        TVKEventConfigurationManager::setInterval(interval);
    }
    if (const Value* ignored = event.find("ignored"); ignored && ignored->isDictionary()) {
        TVKEventConfigurationManager::setMutedMessages(digestListAt(*ignored, "messages"));
        TVKEventConfigurationManager::setMutedApplications(digestListAt(*ignored, "apps"));
        TVKEventConfigurationManager::setMutedApplicationVersions(
            digestListAt(*ignored, "versions"));
        TVKEventConfigurationManager::setMutedDevices(digestListAt(*ignored, "devices"));
    }
}

}  // namespace tarvik
