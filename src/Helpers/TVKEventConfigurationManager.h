#pragma once

#include <tarvik/Value.h>

#include "Platform/HttpRequest.h"
#include "Platform/MainQueue.h"
#include "Platform/TVKHttpTransport.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tarvik {

// Decides whether recorded events may be sent. While the event feature is off, the server's
// event configuration ("/v1/event/config.json") is polled on a repeating main-queue timer; its
// on/off answer goes to the settings store, and its mute lists (upper-case MD5 digests of event
// titles, bundle identifiers, app versions and device identifiers) are kept in memory only.
class TVKEventConfigurationManager
    : public std::enable_shared_from_this<TVKEventConfigurationManager> {
  public:
    static std::shared_ptr<TVKEventConfigurationManager> sharedInstance();

    // Starts polling unless a timer already runs.
    static void startTimer();
    // Sets the polling interval, kept between `minimumSeconds` and `maximumSeconds` (a value
    // that is not a number counts as the minimum); a changed interval restarts the timer.
    static void setInterval(double seconds);
    static bool shouldUploadDataForEventTitle(const std::optional<std::string>& title);
    // Each replaces one mute list; none (a missing key) empties it; entries that are not
    // strings are ignored.
    static void setMutedMessages(const std::optional<Array>& digests);
    static void setMutedApplications(const std::optional<Array>& digests);
    static void setMutedApplicationVersions(const std::optional<Array>& digests);
    static void setMutedDevices(const std::optional<Array>& digests);

    TVKEventConfigurationManager();
    ~TVKEventConfigurationManager();
    TVKEventConfigurationManager(const TVKEventConfigurationManager&) = delete;
    TVKEventConfigurationManager& operator=(const TVKEventConfigurationManager&) = delete;

    // Replaces the timer by one that fires now (or, when fetches came fast, as soon as the
    // fetch pacing allows) and then every `intervalSeconds`.
    void resetTimer();
    void shutdownTimer();
    // One timer firing: stops polling once the feature is on, else fetches the configuration
    // in the background.
    void updateEventConfig();
    HttpRequest buildRequest(const std::string& url) const;

    double minimumSeconds() const { return kMinimumSeconds; }
    double maximumSeconds() const { return kMaximumSeconds; }
    double intervalSeconds() const;
    bool hasTimer() const;
    std::vector<std::string> mutedMessages() const;
    std::vector<std::string> mutedApplications() const;
    std::vector<std::string> mutedApplicationVersions() const;
    std::vector<std::string> mutedDevices() const;

  private:
    static constexpr double kMinimumSeconds = 900.0;
    // A day: longer answers (up to an infinite one) would stop polling for the process.
    static constexpr double kMaximumSeconds = 86400.0;

    // Answers that keep changing the interval restart the timer at every answer, and each
    // restart fetches at once. Fetches are therefore paced: two may start together, after
    // which they start at most once a minute, on the media clock (which clock changes do not
    // move). The interval's own firings are never held back by this.
    class FetchPacing {
      public:
        static constexpr double kSecondsBetweenFetches = 60.0;
        static constexpr int kFetchesAtOnce = 2;

        double earliestNextFetch() const {
            return paidUntil_ - (kFetchesAtOnce - 1) * kSecondsBetweenFetches;
        }
        void recordFetch(double now) {
            paidUntil_ = std::max(paidUntil_, now) + kSecondsBetweenFetches;
        }

      private:
        // Each fetch pays for one spacing after the later of its start and the earlier ones'.
        double paidUntil_ = -std::numeric_limits<double>::infinity();
    };

    // "https://<host>/v1/event/config.json?app_bundle_identifier=...&app_name=...".
    static std::string configurationUrl();
    void fetchEventConfig();
    void applyFetchResult(const HttpResult& result);
    void applyConfiguration(const Dictionary& document);
    // `setInterval` on this instance.
    void changeInterval(double seconds);
    void replaceList(std::vector<std::string> TVKEventConfigurationManager::*list,
                     const std::optional<Array>& digests);
    bool isListed(std::vector<std::string> TVKEventConfigurationManager::*list,
                  const std::string& digest) const;
    std::vector<std::string> copyOf(
        std::vector<std::string> TVKEventConfigurationManager::*list) const;

    // Guards every field below: the timer fires on the main queue, fetch results arrive on a
    // thread of their own and the decision is asked from any thread.
    mutable std::mutex mutex_;
    std::shared_ptr<Timer> timer_;
    FetchPacing fetchPacing_;
    double intervalSeconds_ = kMinimumSeconds;
    std::vector<std::string> mutedMessages_;
    std::vector<std::string> mutedApplications_;
    std::vector<std::string> mutedApplicationVersions_;
    std::vector<std::string> mutedDevices_;
};

}  // namespace tarvik
