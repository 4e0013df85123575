#pragma once

#include <tarvik/Value.h>

#include "Platform/MainQueue.h"
#include "Platform/NotificationCenter.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tarvik {

class TVKSubmission;

// Sends queued submissions again. Once a minute it rebuilds its list from the Queued folders
// and sends every submission whose "retryDate.txt" has passed; a submission without one is
// given a retry time instead. One whose earlier send is still queued or running is not queued
// again (the operation queue knows it by its identifier), however long that send hangs.
// A failed answer sets the retry time 180 s ahead. Only the retry date is kept on disk: every
// pass starts each submission's counter afresh, so the delay is 180 s after every failure.
class TVKRetryManager {
  public:
    // The pattern of "retryDate.txt", in the device's time zone.
    static constexpr const char* retryDateFormat = "MM/dd/yyyy HH:mm:ss";
    static constexpr double kRetryInterval = 60;

    // Made once; making it starts the timer on the main queue and watches for failures.
    static std::shared_ptr<TVKRetryManager> sharedInstance();
    static void beginRetryingSubmissions();

    TVKRetryManager();
    ~TVKRetryManager();
    TVKRetryManager(const TVKRetryManager&) = delete;
    TVKRetryManager& operator=(const TVKRetryManager&) = delete;

    void didFailSubmission(const std::shared_ptr<TVKSubmission>& submission);
    void findSubmissionsToRetry();
    void retryFailedSubmissions();
    void updateRetryDate(TVKSubmission& submission);
    bool isReadyToRetry(TVKSubmission& submission);
    static std::string stringFromRetryDate(Date date);
    // None when the text does not follow the pattern.
    static std::optional<Date> retryDateFromString(const std::string& text);

    std::vector<std::shared_ptr<TVKSubmission>> retrySubmissions() const;

  private:
    mutable std::mutex mutex_;  // guards the list: the timer and failures run on different threads
    std::vector<std::shared_ptr<TVKSubmission>> retrySubmissions_;
    std::shared_ptr<Timer> retryTimer_;
    NotificationCenter::Token failureObserver_ = 0;
};

}  // namespace tarvik
