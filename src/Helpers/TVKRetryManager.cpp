#include "Helpers/TVKRetryManager.h"

#include <tarvik/Tarvik.h>

#include "Helpers/TVKFileHelper.h"
#include "Models/TVKSubmission.h"
#include "Platform/Runtime.h"
#include "Public/DebugConsole.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>

#include <unistd.h>

namespace tarvik {

namespace {

// "MM/dd/yyyy HH:mm:ss" in the C library's terms.
constexpr const char* kRetryDatePattern = "%m/%d/%Y %H:%M:%S";

}  // namespace

std::shared_ptr<TVKRetryManager> TVKRetryManager::sharedInstance() {
    return Runtime::current().sharedInstance<TVKRetryManager>();
}

void TVKRetryManager::beginRetryingSubmissions() {
    sharedInstance();
}

TVKRetryManager::TVKRetryManager() {
    Runtime& runtime = Runtime::current();
    // The manager lives as long as the runtime, which stops the timer and the notifications
    // before destroying it.
    Date firstFire = runtime.clock().now() + std::chrono::duration_cast<Date::duration>(
                                                 std::chrono::duration<double>(kRetryInterval));
    retryTimer_ = runtime.mainQueue().scheduleTimer(firstFire, kRetryInterval, true,
                                                    [this] { retryFailedSubmissions(); });
    failureObserver_ = runtime.notificationCenter().addObserver(
        TarvikNotificationDidFailSubmission, [this](const Notification& notification) {
            didFailSubmission(notification.objectAs<TVKSubmission>());
        });
}

TVKRetryManager::~TVKRetryManager() {
    retryTimer_->invalidate();
    Runtime::current().notificationCenter().removeObserver(failureObserver_);
}

void TVKRetryManager::didFailSubmission(const std::shared_ptr<TVKSubmission>& submission) {
    if (!submission) {
        return;
    }
    logToConsoleIfDebug("Adding failed submission to retry list: " + submission->uuid());
    updateRetryDate(*submission);
    std::lock_guard lock(mutex_);
    retrySubmissions_.push_back(submission);
}

void TVKRetryManager::findSubmissionsToRetry() {
    std::vector<std::shared_ptr<TVKSubmission>> pending =
        TVKSubmission::processCacheFolderForSubmissions();
    std::lock_guard lock(mutex_);
    retrySubmissions_ = std::move(pending);
}

void TVKRetryManager::retryFailedSubmissions() {
    findSubmissionsToRetry();
    std::vector<std::shared_ptr<TVKSubmission>> sent;
    for (const std::shared_ptr<TVKSubmission>& submission : retrySubmissions()) {
        if (isReadyToRetry(*submission)) {
            // One that is still queued or being sent from an earlier pass is left to that send.
            if (submission->sendSubmission()) {
                logToConsoleIfDebug("Retrying submission: " + submission->uuid());
            }
            sent.push_back(submission);
        }
    }
    std::lock_guard lock(mutex_);
    std::erase_if(retrySubmissions_, [&](const std::shared_ptr<TVKSubmission>& submission) {
        return std::find(sent.begin(), sent.end(), submission) != sent.end();
    });
}

void TVKRetryManager::updateRetryDate(TVKSubmission& submission) {
    std::uint64_t counter = submission.retryCounter() + 1;
    submission.setRetryCounter(counter);
    double delay = (std::pow(2.0, static_cast<double>(counter + 1)) - 1) * 60;
    Date retryDate = Runtime::current().clock().now() + std::chrono::duration_cast<Date::duration>(
                                                            std::chrono::duration<double>(delay));
    std::string text = stringFromRetryDate(retryDate);
    // A submission that is being sent may be answered for good at this very moment: its
    // folder is then gone for good, and must not come back holding just a retry date.
    submission.replaceFileInFolder(submission.retryDateFilePath(), Data(text.begin(), text.end()));
}

bool TVKRetryManager::isReadyToRetry(TVKSubmission& submission) {
    std::string path = submission.retryDateFilePath();
    std::optional<Date> retryDate;
    if (::access(path.c_str(), F_OK) == 0) {
        std::optional<std::string> text = TVKFileHelper::stringWithContentsOfFileAtPath(path);
        retryDate = text ? retryDateFromString(*text) : std::nullopt;
    }
    // No date yet, or a damaged one, which would otherwise hold the submission back for ever.
    if (!retryDate) {
        updateRetryDate(submission);
        return false;
    }
    return Runtime::current().clock().now() > *retryDate;
}

std::string TVKRetryManager::stringFromRetryDate(Date date) {
    std::time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::size_t length = std::strftime(text, sizeof text, kRetryDatePattern, &local);
    return std::string(text, length);
}

std::optional<Date> TVKRetryManager::retryDateFromString(const std::string& text) {
    std::tm local{};
    const char* end = strptime(text.c_str(), kRetryDatePattern, &local);
    if (!end || *end != '\0') {
        return std::nullopt;
    }
    local.tm_isdst = -1;
    std::time_t seconds = std::mktime(&local);
    if (seconds == -1) {
        return std::nullopt;
    }
    return std::chrono::system_clock::from_time_t(seconds);
}

std::vector<std::shared_ptr<TVKSubmission>> TVKRetryManager::retrySubmissions() const {
    std::lock_guard lock(mutex_);
    return retrySubmissions_;
}

}  // namespace tarvik
