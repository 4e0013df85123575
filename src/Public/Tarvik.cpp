#include <tarvik/Tarvik.h>

#include "Helpers/NSBundle+Tarvik.h"
#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKEventConfigurationManager.h"
#include "Helpers/TVKExceptionHelper.h"
#include "Helpers/TVKFileHelper.h"
#include "Helpers/TVKLogger.h"
#include "Helpers/TVKMemoryManager.h"
#include "Helpers/TVKRetryManager.h"
#include "Helpers/TVKScreenshotHelper.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/TVKShakeDetectionHelper.h"
#include "Helpers/UIApplication+Tarvik.h"
#include "Helpers/UIColor+Tarvik.h"
#include "Helpers/UIViewController+Tarvik.h"
#include "Kit/UIScreen.h"
#include "Kit/UIView.h"
#include "Kit/UIWindow.h"
#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Models/TVKReportSession.h"
#include "Models/TVKSubmission.h"
#include "Platform/JsonValue.h"
#include "Platform/PathUtilities.h"
#include "Platform/Runtime.h"
#include "Platform/Utf8.h"
#include "Public/DebugConsole.h"
#include "Views/TVKConfirmationAlertView.h"
#include "Views/TVKInstructionAlertView.h"
#include "Views/TVKNavigationController.h"
#include "Views/TVKScreenshotViewController.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace tarvik {

namespace {
using Kind = TVKDirectoryLayout::Kind;
using Status = TVKDirectoryLayout::Status;

// A key read from a file or pasted often carries a line break or blanks around it, which no
// service key holds: they are dropped.
std::string_view withoutSurroundingWhiteSpace(std::string_view key) {
    constexpr std::string_view kWhiteSpace = " \t\r\n\v\f";
    std::size_t first = key.find_first_not_of(kWhiteSpace);
    if (first == std::string_view::npos) {
        return {};
    }
    return key.substr(first, key.find_last_not_of(kWhiteSpace) - first + 1);
}

// The offset of the first control character, which no request header can carry.
std::optional<std::size_t> firstControlCharacter(std::string_view key) {
    for (std::size_t offset = 0; offset < key.size(); ++offset) {
        unsigned char c = static_cast<unsigned char>(key[offset]);
        if (c < 0x20 || c == 0x7F) {
            return offset;
        }
    }
    return std::nullopt;
}
}  // namespace

Tarvik::Tarvik() {
    TVKExceptionHelper::configureCrashHandler();
    tarvikStartDate_ = Runtime::current().clock().mediaTime();
    // Carrier look-ups go through the device probes; there is no telephony object to keep.
}

Tarvik& Tarvik::sharedInstance() {
    return *Runtime::current().sharedInstance<Tarvik>([] {
        std::shared_ptr<Tarvik> instance(new Tarvik());
        instance->registerObservers();
        return instance;
    });
}

void Tarvik::registerObservers() {
    // The singleton lives as long as the runtime, so it never unregisters.
    NotificationCenter& center = Runtime::current().notificationCenter();
    center.addObserver(
        TarvikNotificationDidFinishCaptureSession, [this](const Notification& notification) {
            auto submission = notification.objectAs<TVKIssueSubmission>();
            // The reporter's window belongs to the main thread, whoever posts.
            MainQueue& mainQueue = Runtime::current().mainQueue();
            if (mainQueue.isMainThread()) {
                didFinishCapture(submission);
            } else {
                mainQueue.async([this, submission] { didFinishCapture(submission); });
            }
        });
    center.addObserver(TarvikNotificationShouldLaunchIssueSubmission,
                       [this](const Notification&) { launchIssueSubmission(); });
    center.addObserver(TarvikNotificationDidCallToCopyAllFiles,
                       [this](const Notification& notification) {
                           didCallToCopyAllFiles(notification.objectAs<TVKSubmission>());
                       });
}

Tarvik& Tarvik::startWithAPIKey(const std::optional<std::string>& apiKey) {
    if (!apiKey) {
        throw ParameterAssertionError("apiKey");
    }
    return startWithAPIKey(apiKey, TarvikProcessTypeShake, false);
}

Tarvik& Tarvik::startWithAPIKey(const std::optional<std::string>& apiKey,
                                TarvikProcessType processType) {
    if (!apiKey) {
        throw ParameterAssertionError("apiKey");
    }
    return startWithAPIKey(apiKey, processType, false);
}

Tarvik& Tarvik::startWithAPIKey(const std::optional<std::string>& apiKey,
                                TarvikProcessType processType, bool debug) {
    if (!apiKey) {
        throw ParameterAssertionError("apiKey");
    }
    std::string_view key = withoutSurroundingWhiteSpace(*apiKey);
    if (std::optional<std::size_t> offset = firstControlCharacter(key)) {
        // Every request would fail before it left the device, and the queue would only grow:
        // the start is refused, loudly even outside debug mode, and an earlier start stands.
        Console& console = Runtime::current().console();
        console.writeLine(
            "Tarvik -- the API key cannot be sent in a request header; Tarvik is not started");
        if (debug) {
            std::size_t leadingWhiteSpace = key.data() - apiKey->data();
            console.writeLine(fmt::format(
                "Tarvik -- the API key holds the control character 0x{:02X} at offset {}",
                static_cast<unsigned char>(key[*offset]), leadingWhiteSpace + *offset));
        }
        return sharedInstance();
    }
    UIApplicationTarvik::tarvik_swizzleMethods();
    UIViewControllerTarvik::tarvik_swizzleMethods();
    Tarvik& tarvik = sharedInstance();
    tarvik.setApiKey(std::string(key));
    tarvik.setDebug(debug);
    tarvik.setProcessType(processType);
    TVKLogger::redirectConsoles();
    TVKLogger::reset();
    tarvik.configureDirectories();
    // Settings first used while their file could not be read or written would keep events
    // off for the whole launch.
    TVKSettingsManager::restoreSettingsFile();
    std::int64_t droppedEvents = tarvik.eventsDroppedBeforeStart_.exchange(0);
    if (debug && droppedEvents > 0) {
        Runtime::current().console().writeLine(fmt::format(
            "Tarvik -- {} recorded before the start {} dropped: start Tarvik before recording "
            "events",
            droppedEvents == 1 ? "1 event" : fmt::format("{} events", droppedEvents),
            droppedEvents == 1 ? "was" : "were"));
    }
    if (debug) {
        std::string banner = "Starting Tarvik - version " + tarvik.version().value_or("(null)");
        Runtime::current().console().writeLine(banner);
        TVKLogger::logMessage(banner);
    }
    TVKEventConfigurationManager::startTimer();
    TVKMemoryManager::beginWatchingMemory();
    TVKRetryManager::beginRetryingSubmissions();
    return tarvik;
}

void Tarvik::recordEvent(const std::string& message, const char* file, const char* function,
                         std::int32_t line, bool includeAttachments) {
    // Before the start there is no key to send an event with, and the start empties the
    // folder it would be gathered in.
    if (!apiKey()) {
        ++eventsDroppedBeforeStart_;
        return;
    }
    if (!TVKEventConfigurationManager::shouldUploadDataForEventTitle(message)) {
        // An answer to a send can switch events off without restarting polling, which would
        // leave them off for the process: a dropped event starts it. Polling that runs is left
        // as it is, so a stream of dropped events asks the service no more often than it does.
        TVKEventConfigurationManager::startTimer();
        return;
    }
    // The event's fields are sent in this order. Names that are not UTF-8 text are left out, as
    // they could not be decoded.
    Dictionary eventData{{"message", message}};
    if (file && isValidUtf8(file)) {
        eventData["file_name"] = std::string(file);
    }
    if (function && isValidUtf8(function)) {
        eventData["method_name"] = std::string(function);
    }
    eventData["line_number"] = fmt::format("{}", line);
    std::shared_ptr<TVKEventSubmission> submission = TVKEventSubmission::create();
    submission->saveApplicationIcon();
    submission->saveEventSubmissionData(eventData);
    submission->setIncludeEventAttachments(includeAttachments);
    submission->saveMetadata(metadata());
    submission->saveUserProperties(createTarvikProperties());
    if (includeAttachments) {
        for (const std::string& url : attachments()) {
            submission->attachFileFromUrl(url);
        }
    }
    submission->copyAllFilesWithCompletionHandler(
        [](const std::shared_ptr<TVKSubmission>& gathered) { gathered->sendSubmission(); });
}

void Tarvik::logMessage(const std::string& message, std::int64_t level, const char* file,
                        const char* function, std::int32_t line) {
    // The debug log is text: bytes that are not UTF-8 are written as U+FFFD.
    TVKLogger::logDebugMessage(withInvalidUtf8Replaced(message), level,
                               lastPathComponent(withInvalidUtf8Replaced(file ? file : "")), line,
                               withInvalidUtf8Replaced(function ? function : ""));
}

void Tarvik::didCallToCopyAllFiles(const std::shared_ptr<TVKSubmission>& submission) {
    if (!submission) {
        return;
    }
    for (const std::string& url : attachments()) {
        submission->attachFileFromUrl(url);
    }
}

void Tarvik::setProcessType(TarvikProcessType processType) {
    {
        std::lock_guard triggers(triggerMutex_);
        processType_.store(processType);
        switch (processType) {
            case TarvikProcessTypeShake:
                TVKShakeDetectionHelper::startDetectingShake();
                break;
            case TarvikProcessTypeManual:
                // Deliberately nothing more: no instruction overlay, and shake detection that
                // an earlier type started keeps running.
                return;
            case TarvikProcessTypeScreenshot:
                TVKScreenshotHelper::beginDetectingScreenshot();
                break;
            default:
                break;
        }
    }
    std::shared_ptr<TarvikDelegate> delegate;
    bool consider = false;
    {
        std::lock_guard lock(mutex_);
        if (!didShowInstructionView_) {
            didShowInstructionView_ = true;
            consider = true;
            delegate = delegate_.lock();
        }
    }
    if (consider) {
        std::optional<bool> answer;
        if (delegate) {
            answer = delegate->tarvikShouldDisplayInstructionView(*this);
        }
        if (answer.value_or(true)) {
            TVKInstructionAlertView::show();
        }
    }
    // The type stored now: another thread may have stored the shake type since.
    std::lock_guard triggers(triggerMutex_);
    if (processType_.load() != TarvikProcessTypeShake) {
        TVKShakeDetectionHelper::stopDetectingShake();
    }
}

void Tarvik::presentReportIssueController() {
    if (processType() == TarvikProcessTypeManual) {
        launchIssueSubmission();
    }
}

void Tarvik::launchIssueSubmission() {
    if (window_) {
        return;  // a reporter is on screen: the trigger is dropped
    }
    {
        std::lock_guard lock(mutex_);
        submissionDialogStartDate_ = Runtime::current().clock().mediaTime();
    }
    // A system screenshot has already made its sound.
    std::optional<Image> screenshot = TVKScreenshotHelper::takeScreenshotWithShutterSound(
        processType() != TarvikProcessTypeScreenshot);
    auto session = std::make_shared<TVKReportSession>();
    session->setScreenshot(screenshot ? std::make_shared<const Image>(*screenshot) : nullptr);
    auto editor = std::make_shared<TVKScreenshotViewController>();
    editor->setReportSession(session);
    auto navigation = std::make_shared<TVKNavigationController>(editor);

    window_ = std::make_shared<UIWindow>(UIScreen::mainScreen().bounds());
    window_->setTintColor(tarvik_drawBlueColor());
    window_->setBackgroundColor(tarvik_darkTextColor());
    window_->setRootViewController(navigation);
    window_->setWindowLevel(UIWindowLevelStatusBar);
    window_->setHidden(false);
}

void Tarvik::didFinishCapture(const std::shared_ptr<TVKIssueSubmission>& submission) {
    incrementTimeSpentSubmittingIssue();
    if (std::shared_ptr<UIWindow> closing = window_) {
        UIView::animateWithDuration(
            0.25, [closing] { closing->setAlpha(0); },
            [this, closing](bool) {
                closing->setRootViewController(nullptr);
                closing->setHidden(true);
                if (window_ == closing) {
                    window_ = nullptr;
                }
            });
    }
    if (submission) {
        didGenerateIssueSubmission(submission);
    }
}

void Tarvik::didGenerateIssueSubmission(
    const std::shared_ptr<TVKIssueSubmission>& issueSubmission) {
    if (!issueSubmission) {
        throw ParameterAssertionError("issueSubmission");
    }
    std::optional<std::string> comments = issueSubmission->comments();
    if (!comments) {
        throw ParameterAssertionError("issueSubmission.comments");
    }
    issueSubmission->saveMetadata(metadata());
    setUserEmail(issueSubmission->emailAddress());
    {
        std::lock_guard lock(mutex_);
        userComments_ = comments;
    }
    issueSubmission->saveUserProperties(createTarvikProperties());
    issueSubmission->saveUserElapsedTimes(userElapsedTimesDictionary());
    issueSubmission->sendSubmission();

    std::shared_ptr<TarvikDelegate> host = delegate().lock();
    std::optional<bool> confirm;
    if (host) {
        confirm = host->tarvikShouldDisplayConfirmationMessage(*this);
    }
    if (confirm.value_or(true)) {
        TVKConfirmationAlertView::show();
    }
    if (host) {
        host->tarvikDidGenerateUserIssueSubmission(*this);
    }
}

void Tarvik::setUserProperty(const std::string& key, const std::optional<std::string>& value) {
    std::lock_guard lock(mutex_);
    if (value) {
        userProperties_[key] = *value;
    } else {
        userProperties_.erase(key);
    }
}

void Tarvik::setUserIdentifier(const std::optional<std::string>& identifier) {
    setUserProperty(TarvikUserPropertyIdentifierKey, identifier);
}

void Tarvik::setUsername(const std::optional<std::string>& username) {
    setUserProperty(TarvikUserPropertyUsernameKey, username);
}

void Tarvik::setUserFullName(const std::optional<std::string>& fullName) {
    setUserProperty(TarvikUserPropertyFullNameKey, fullName);
}

void Tarvik::setUserEmail(const std::optional<std::string>& email) {
    setUserProperty(TarvikUserPropertyEmailKey, email);
    TVKSettingsManager::setUserEmail(email);
}

void Tarvik::clearUserInformation() {
    setUserIdentifier(std::nullopt);
    setUsername(std::nullopt);
    setUserFullName(std::nullopt);
    setUserEmail(std::nullopt);
}

void Tarvik::setMetadataValue(const std::optional<std::string>& key, std::optional<Value> value) {
    if (!key) {
        throw ParameterAssertionError("key");
    }
    std::lock_guard lock(mutex_);
    if (value) {
        metadata_[*key] = std::move(*value);
    } else {
        metadata_.erase(*key);
    }
}

void Tarvik::setDictionary(const std::optional<Dictionary>& dictionary,
                           const std::optional<std::string>& key) {
    if (!key) {
        throw ParameterAssertionError("key");
    }
    if (!dictionary) {
        setMetadataValue(key, std::nullopt);
        return;
    }
    std::optional<std::string> text = json::compactText(Value(*dictionary));
    if (!text) {
        // Dates and data have no JSON form: the property is left as it was.
        logToConsoleIfDebug("Tarvik Error -- FAILED to serialise dictionary as JSON for key: " +
                            *key);
        return;
    }
    setMetadataValue(key, Value(*text));
}

void Tarvik::setString(const std::optional<std::string>& value,
                       const std::optional<std::string>& key) {
    setMetadataValue(key, value ? std::optional<Value>(*value) : std::nullopt);
}

void Tarvik::setIntValue(std::int64_t value, const std::optional<std::string>& key) {
    setMetadataValue(key, Value(value));
}

void Tarvik::setBoolValue(bool value, const std::optional<std::string>& key) {
    setMetadataValue(key, Value(value));
}

void Tarvik::setFloatValue(float value, const std::optional<std::string>& key) {
    // Kept as the double nearest the float's own shortest text, so 1.1f is sent as 1.1.
    char text[32];
    auto end = std::to_chars(text, text + sizeof text, value).ptr;
    setMetadataValue(key, Value(std::strtod(std::string(text, end).c_str(), nullptr)));
}

Dictionary Tarvik::createTarvikProperties() {
    std::optional<std::string> sdkVersion = version();
    double now = Runtime::current().clock().mediaTime();
    std::lock_guard lock(mutex_);
    Dictionary properties = userProperties_;
    if (userComments_) {
        properties[TarvikUserPropertyCommentsKey] = *userComments_;
    }
    if (apiKey_) {
        properties["apiKey"] = *apiKey_;
    }
    if (sdkVersion) {
        properties[TarvikUserPropertyVersionKey] = *sdkVersion;
    }
    // The session counts from the SDK's creation, less the time spent in the reporter.
    sessionLength_ = (now - tarvikStartDate_) - totalTimeInSubmissionDialog_;
    properties[TarvikUserPropertySessionLength] = sessionLength_;
    return properties;
}

bool Tarvik::addAttachmentWithFileUrl(const std::optional<std::string>& fileUrl) {
    if (!fileUrl) {
        throw ParameterAssertionError("fileUrl");
    }
    if (TVKFileHelper::fileSizeTooBig(*fileUrl)) {
        return false;
    }
    std::lock_guard lock(mutex_);
    attachments_.insert(*fileUrl);
    return true;
}

void Tarvik::removeAttachmentWithFileUrl(const std::optional<std::string>& fileUrl) {
    if (!fileUrl) {
        throw ParameterAssertionError("fileUrl");
    }
    std::lock_guard lock(mutex_);
    attachments_.erase(*fileUrl);
}

void Tarvik::clearAttachments() {
    std::lock_guard lock(mutex_);
    attachments_.clear();
}

void Tarvik::startTrackingTimeForKey(const std::string& key) {
    double now = Runtime::current().clock().mediaTime();
    std::lock_guard lock(mutex_);
    userTimestampsDictionary_[key] = Array{now};
}

void Tarvik::stopTrackingTimeForKey(const std::string& key) {
    double now = Runtime::current().clock().mediaTime();
    std::lock_guard lock(mutex_);
    auto running = userTimestampsDictionary_.find(key);
    if (running == userTimestampsDictionary_.end()) {
        return;
    }
    const Array* start = running->second.asArray();
    if (start && !start->empty()) {
        userElapsedTimesDictionary_[key] = now - start->front().doubleValue();
    }
    userTimestampsDictionary_.erase(running);
}

void Tarvik::incrementTimeSpentSubmittingIssue() {
    double now = Runtime::current().clock().mediaTime();
    std::lock_guard lock(mutex_);
    totalTimeInSubmissionDialog_ += now - submissionDialogStartDate_;
}

std::optional<std::string> Tarvik::version() const {
    return tarvik_frameworkBundle().stringForInfoKey("CFBundleShortVersionString");
}

void Tarvik::setVersion(std::optional<std::string> version) {
    std::lock_guard lock(mutex_);
    version_ = std::move(version);
}

void Tarvik::configureDirectories() {
    TVKFileHelper::createDirectoryAtPath(TVKDirectoryLayout::cacheFolderPath());
    TVKFileHelper::createDirectoryAtPath(TVKDirectoryLayout::tempLogsDirectory());
    TVKFileHelper::createDirectoryAtPath(TVKDirectoryLayout::settingsFolderPath());

    TVKFileHelper::createDirectoryAtPath(TVKDirectoryLayout::typeFolderPath(Kind::Issues));
    TVKFileHelper::createDirectoryAtPath(TVKDirectoryLayout::typeFolderPath(Kind::Events));

    // Submissions an earlier run left half-gathered are dropped.
    TVKFileHelper::removeFileAtPath(
        TVKDirectoryLayout::statusFolderPath(Kind::Issues, Status::Processing));
    TVKFileHelper::removeFileAtPath(
        TVKDirectoryLayout::statusFolderPath(Kind::Events, Status::Processing));

    // Sent submissions are kept only in debug mode, for inspection.
    if (!debug()) {
        TVKFileHelper::removeFileAtPath(
            TVKDirectoryLayout::statusFolderPath(Kind::Issues, Status::Sent));
        TVKFileHelper::removeFileAtPath(
            TVKDirectoryLayout::statusFolderPath(Kind::Events, Status::Sent));
    }

    for (Kind kind : {Kind::Issues, Kind::Events}) {
        for (Status status : {Status::Processing, Status::Queued, Status::Sent}) {
            TVKFileHelper::createDirectoryAtPath(
                TVKDirectoryLayout::statusFolderPath(kind, status));
        }
    }
}

std::optional<std::string> Tarvik::apiKey() const {
    std::lock_guard lock(mutex_);
    return apiKey_;
}

void Tarvik::setApiKey(std::optional<std::string> apiKey) {
    std::lock_guard lock(mutex_);
    apiKey_ = std::move(apiKey);
}

std::weak_ptr<TarvikDelegate> Tarvik::delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_;
}

void Tarvik::setDelegate(std::weak_ptr<TarvikDelegate> delegate) {
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
}

Dictionary Tarvik::userProperties() const {
    std::lock_guard lock(mutex_);
    return userProperties_;
}

Dictionary Tarvik::metadata() const {
    std::lock_guard lock(mutex_);
    return metadata_;
}

std::optional<std::string> Tarvik::userComments() const {
    std::lock_guard lock(mutex_);
    return userComments_;
}

std::set<std::string> Tarvik::attachments() const {
    std::lock_guard lock(mutex_);
    return attachments_;
}

Dictionary Tarvik::userTimestampsDictionary() const {
    std::lock_guard lock(mutex_);
    return userTimestampsDictionary_;
}

Dictionary Tarvik::userElapsedTimesDictionary() const {
    std::lock_guard lock(mutex_);
    return userElapsedTimesDictionary_;
}

double Tarvik::tarvikStartDate() const {
    std::lock_guard lock(mutex_);
    return tarvikStartDate_;
}

double Tarvik::sessionLength() const {
    std::lock_guard lock(mutex_);
    return sessionLength_;
}

double Tarvik::totalTimeInSubmissionDialog() const {
    std::lock_guard lock(mutex_);
    return totalTimeInSubmissionDialog_;
}

double Tarvik::submissionDialogStartDate() const {
    std::lock_guard lock(mutex_);
    return submissionDialogStartDate_;
}

bool Tarvik::didShowInstructionView() const {
    std::lock_guard lock(mutex_);
    return didShowInstructionView_;
}

void* TarvikLibUiDeviceCategory = nullptr;
void* TarvikLibUiApplicationCategory = nullptr;
void* TarvikLibUiViewControllerCategory = nullptr;
void* TarvikLibUIImageCategory = nullptr;
void* TarvikLibUIColorCategory = nullptr;
void* TarvikLibNSBundleCategory = nullptr;
void* TarvikLibNSStringCategory = nullptr;
void* TarvikLibNSDateCategory = nullptr;

void importCategories() {
    // Reading each anchor once is enough to keep its category linked in.
    void* volatile sink = nullptr;
    for (void* anchor :
         {TarvikLibUiDeviceCategory, TarvikLibUiApplicationCategory,
          TarvikLibUiViewControllerCategory, TarvikLibUIImageCategory, TarvikLibUIColorCategory,
          TarvikLibNSBundleCategory, TarvikLibNSStringCategory, TarvikLibNSDateCategory}) {
        sink = anchor;
    }
    (void)sink;
}

}  // namespace tarvik
