#pragma once

#include <tarvik/Value.h>

#include "Platform/OperationQueue.h"
#include "Platform/TVKHttpTransport.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

namespace tarvik {

class TVKSubmission;
class TVKSubmissionRequestBuilder;

// Sends one submission and settles its fate from the answer:
//   200, 400, 401       answered for good: the submission is removed (200 may also carry
//                       "event" settings, which are applied)
//   any other status    TarvikNotificationDidFailSubmission; the submission stays queued
//   no response         the submission stays queued for the retry pass
// A muted event is removed without being sent. The operation runs on a thread of its own and
// counts as executing until the answer has been handled, so the serial operation queue sends
// one submission at a time.
class TVKSubmissionOperation : public std::enable_shared_from_this<TVKSubmissionOperation> {
  public:
    static constexpr int kQueuePriorityLow = -4;
    static constexpr int kQualityOfServiceBackground = 9;

    // Moves the submission to Queued (if it is still being processed).
    explicit TVKSubmissionOperation(std::shared_ptr<TVKSubmission> submission);
    ~TVKSubmissionOperation();

    // Hands the operation to the runtime's operation queue, unless an operation for the same
    // submission (by identifier) is queued or running: false then, and the operation is
    // dropped. Once an operation has finished, its submission may be queued again.
    static bool enqueue(std::shared_ptr<TVKSubmissionOperation> operation);

    // Called by the operation queue; `finish` tells it that the operation is over.
    void start(OperationQueue::Finish finish);
    void cancel() { cancelled_.store(true); }
    void main();
    // Sends on the calling thread and settles the submission's fate; none for a muted event,
    // which is removed unsent.
    std::optional<HttpResult> send();
    void finishMainNSOperationMethod();
    // What the answer means for the submission.
    void handleResult(const HttpResult& result);

    bool isAsynchronous() const { return true; }
    bool isCancelled() const { return cancelled_.load(); }
    bool isExecuting() const { return running_.load(); }
    bool isFinished() const { return completed_.load(); }
    int queuePriority() const { return kQueuePriorityLow; }
    int qualityOfService() const { return kQualityOfServiceBackground; }
    bool isEventSubmission() const;
    const std::shared_ptr<TVKSubmission>& submission() const { return submission_; }

    // Applies the "event" object of a successful answer to the event configuration.
    static void applyEventSettings(const Value& event);

  private:
    // The identifiers of the submissions whose operations are queued or running, one set per
    // runtime.
    class SubmissionsInQueue;

    bool isMutedEvent() const;
    void leaveQueue();

    std::atomic<bool> running_{false};
    std::atomic<bool> completed_{false};
    std::atomic<bool> cancelled_{false};
    std::unique_ptr<TVKSubmissionRequestBuilder> requestBuilder_;
    std::shared_ptr<TVKSubmission> submission_;
    std::mutex finishMutex_;
    OperationQueue::Finish finish_;
    // Set while the operation holds its submission's place in the queue.
    std::shared_ptr<SubmissionsInQueue> inQueue_;
};

}  // namespace tarvik
