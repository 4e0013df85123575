#pragma once

#include <tarvik/Errors.h>
#include <tarvik/TarvikConstants.h>
#include <tarvik/TarvikDelegate.h>
#include <tarvik/Value.h>

#include <fmt/format.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace tarvik {

class TVKSubmission;
class TVKIssueSubmission;
class UIWindow;

// The SDK's one public class: start it once, early, on the main thread.
//
//     tarvik::Tarvik::startWithAPIKey("your-key", tarvik::TarvikProcessTypeShake, false);
//
// A missing key (std::nullopt) throws ParameterAssertionError; an empty key is accepted.
class Tarvik {
  public:
    // The process-wide instance, created on first use from any thread.
    static Tarvik& sharedInstance();

    static Tarvik& startWithAPIKey(const std::optional<std::string>& apiKey);
    static Tarvik& startWithAPIKey(const std::optional<std::string>& apiKey,
                                   TarvikProcessType processType);
    static Tarvik& startWithAPIKey(const std::optional<std::string>& apiKey,
                                   TarvikProcessType processType, bool debug);

    Tarvik(const Tarvik&) = delete;
    Tarvik& operator=(const Tarvik&) = delete;

    // Stores the type and arms the matching report trigger.
    void setProcessType(TarvikProcessType processType);
    TarvikProcessType processType() const { return processType_.load(); }

    // Opens the reporter; only in the manual process type.
    void presentReportIssueController();
    // Takes the screenshot and opens the reporter over the application in a window of its
    // own, unless a reporter is already on screen. Main thread.
    void launchIssueSubmission();
    // The reporter has closed: with the finished issue, or none when the user cancelled.
    void didFinishCapture(const std::shared_ptr<TVKIssueSubmission>& submission);
    // Completes a finished issue with the session's data and hands it over for sending.
    void didGenerateIssueSubmission(const std::shared_ptr<TVKIssueSubmission>& issueSubmission);
    // The reporter's window while it is on screen (fading out included); none otherwise.
    // Main thread.
    std::shared_ptr<UIWindow> window() const { return window_; }

    // Who the user is; std::nullopt removes a value. The e-mail is also remembered across
    // launches.
    void setUserIdentifier(const std::optional<std::string>& identifier);
    void setUsername(const std::optional<std::string>& username);
    void setUserFullName(const std::optional<std::string>& fullName);
    void setUserEmail(const std::optional<std::string>& email);
    void clearUserInformation();

    // Custom properties sent with every submission. A dictionary travels as compact JSON text;
    // std::nullopt as the value removes the key. A missing key throws ParameterAssertionError.
    void setDictionary(const std::optional<Dictionary>& dictionary,
                       const std::optional<std::string>& key);
    void setString(const std::optional<std::string>& value, const std::optional<std::string>& key);
    void setIntValue(std::int64_t value, const std::optional<std::string>& key);
    void setBoolValue(bool value, const std::optional<std::string>& key);
    void setFloatValue(float value, const std::optional<std::string>& key);

    // The user and session properties stored with each submission.
    Dictionary createTarvikProperties();

    // Files every submission carries, referenced by path and copied when a submission is
    // completed. A file that cannot be read or is too big is refused (false).
    bool addAttachmentWithFileUrl(const std::optional<std::string>& fileUrl);
    void removeAttachmentWithFileUrl(const std::optional<std::string>& fileUrl);
    void clearAttachments();

    // Named timers: a stop stores the time since the matching start, in seconds.
    void startTrackingTimeForKey(const std::string& key);
    void stopTrackingTimeForKey(const std::string& key);
    void incrementTimeSpentSubmittingIssue();

    // A submission gathering its files asks for the host's attachments.
    void didCallToCopyAllFiles(const std::shared_ptr<TVKSubmission>& submission);

    // The SDK's version, read from its own bundle; none when the bundle has none.
    std::optional<std::string> version() const;
    void setVersion(std::optional<std::string> version);

    // Creates the SDK's folders and empties those that must not survive a start.
    void configureDirectories();

    // Records an event of the host's own: a submission with the message, the source position,
    // the logs, the custom and user properties and, when `includeAttachments` is set, the
    // attachments, stored and then sent. Nothing happens when the service has switched events
    // off or muted this message, app, version or device. `file` is kept as passed (the full
    // path). TARVIK_RECORD_EVENT fills in the source position.
    [[gnu::noinline]] void recordEvent(const std::string& message, const char* file,
                                       const char* function, std::int32_t line,
                                       bool includeAttachments);

    // Writes one record to the SDK's debug log, sent with every submission. `file` is the
    // source path (only its last component is kept), `function` the function's name; levels
    // are the host's own numbers, neither named nor filtered. TARVIK_LOG fills in the source
    // position.
    void logMessage(const std::string& message, std::int64_t level, const char* file,
                    const char* function, std::int32_t line);
    template <typename... Args>
    void logWithLevel(std::int64_t level, const char* file, const char* function, std::int32_t line,
                      fmt::format_string<Args...> format, Args&&... args) {
        logMessage(fmt::format(format, std::forward<Args>(args)...), level, file, function, line);
    }

    std::optional<std::string> apiKey() const;
    void setApiKey(std::optional<std::string> apiKey);
    bool debug() const { return debug_.load(); }
    void setDebug(bool debug) { debug_.store(debug); }
    bool collectUserDefaults() const { return collectUserDefaults_.load(); }
    void setCollectUserDefaults(bool collect) { collectUserDefaults_.store(collect); }
    bool saveUserLocation() const { return saveUserLocation_.load(); }
    void setSaveUserLocation(bool save) { saveUserLocation_.store(save); }
    std::weak_ptr<TarvikDelegate> delegate() const;
    void setDelegate(std::weak_ptr<TarvikDelegate> delegate);

    // Session state: copies, safe to read from any thread.
    Dictionary userProperties() const;
    Dictionary metadata() const;
    std::optional<std::string> userComments() const;
    std::set<std::string> attachments() const;
    Dictionary userTimestampsDictionary() const;
    Dictionary userElapsedTimesDictionary() const;
    double tarvikStartDate() const;
    double sessionLength() const;
    double totalTimeInSubmissionDialog() const;
    double submissionDialogStartDate() const;
    bool didShowInstructionView() const;

  private:
    Tarvik();
    void registerObservers();
    void setUserProperty(const std::string& key, const std::optional<std::string>& value);
    void setMetadataValue(const std::optional<std::string>& key, std::optional<Value> value);

    std::atomic<bool> debug_{false};
    std::atomic<bool> collectUserDefaults_{true};
    std::atomic<bool> saveUserLocation_{true};
    std::atomic<TarvikProcessType> processType_{TarvikProcessTypeShake};
    // Holds a type's store with the arming of its trigger, and the stop of shake detection with
    // the test of the stored type, so that two threads setting types at once cannot leave the
    // shake type without detection.
    std::mutex triggerMutex_;
    // Events recorded before the start, reported by the next start in debug mode.
    std::atomic<std::int64_t> eventsDroppedBeforeStart_{0};

    mutable std::mutex mutex_;  // guards everything below
    std::optional<std::string> apiKey_;
    std::optional<std::string> version_;
    std::weak_ptr<TarvikDelegate> delegate_;
    Dictionary userProperties_;
    Dictionary metadata_;
    std::optional<std::string> userComments_;
    std::set<std::string> attachments_;
    Dictionary userTimestampsDictionary_;
    Dictionary userElapsedTimesDictionary_;
    double tarvikStartDate_ = 0;
    double sessionLength_ = 0;
    double totalTimeInSubmissionDialog_ = 0;
    double submissionDialogStartDate_ = 0;
    bool didShowInstructionView_ = false;

    std::shared_ptr<UIWindow> window_;  // main thread only
};

// Zero-initialised anchors, one per category of the SDK, kept only so that a static linker
// keeps the categories; they carry no behaviour.
extern void* TarvikLibUiDeviceCategory;
extern void* TarvikLibUiApplicationCategory;
extern void* TarvikLibUiViewControllerCategory;
extern void* TarvikLibUIImageCategory;
extern void* TarvikLibUIColorCategory;
extern void* TarvikLibNSBundleCategory;
extern void* TarvikLibNSStringCategory;
extern void* TarvikLibNSDateCategory;
void importCategories();

}  // namespace tarvik

// Records an event with the caller's file, function and line:
//     TARVIK_RECORD_EVENT("checkout failed", true);
#define TARVIK_RECORD_EVENT(message, includeAttachments)                                    \
    ::tarvik::Tarvik::sharedInstance().recordEvent((message), __FILE__, __func__, __LINE__, \
                                                   (includeAttachments))

// Logs a formatted record to the SDK's debug log with the caller's file, function and line:
//     TARVIK_LOG(2, "card declined for order {}", orderId);
#define TARVIK_LOG(level, ...)                                                             \
    ::tarvik::Tarvik::sharedInstance().logWithLevel((level), __FILE__, __func__, __LINE__, \
                                                    __VA_ARGS__)
