#include <tarvik/Tarvik.h>

#include "Helpers/NSBundle+Tarvik.h"
#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKExceptionHelper.h"
#include "Helpers/TVKFileHelper.h"
#include "Helpers/TVKLogger.h"
#include "Platform/PathUtilities.h"
#include "Platform/Runtime.h"

namespace tarvik {

namespace {
using Kind = TVKDirectoryLayout::Kind;
using Status = TVKDirectoryLayout::Status;
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
    // The singleton lives as long as the runtime, so it never unregisters. The capture-session
    // and copy-files observers join this list with the reporter and the submissions.
    NotificationCenter& center = Runtime::current().notificationCenter();
    center.addObserver(TarvikNotificationShouldLaunchIssueSubmission,
                       [this](const Notification&) { launchIssueSubmission(); });
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
    // Interaction tracking interposes the application's event dispatch here, once per
    // process, when it lands.
    Tarvik& tarvik = sharedInstance();
    tarvik.setApiKey(apiKey);
    tarvik.setDebug(debug);
    tarvik.setProcessType(processType);
    TVKLogger::redirectConsoles();
    TVKLogger::reset();
    tarvik.configureDirectories();
    if (debug) {
        std::string banner = "Starting Tarvik - version " + tarvik.version().value_or("(null)");
        Runtime::current().console().writeLine(banner);
        TVKLogger::logMessage(banner);
    }
    // The event configuration timer, memory watching and the retry manager start here, in
    // that order, as each lands.
    return tarvik;
}

void Tarvik::logMessage(const std::string& message, std::int64_t level, const char* file,
                        const char* function, std::int32_t line) {
    TVKLogger::logDebugMessage(message, level, lastPathComponent(file ? file : ""), line,
                               function ? function : "");
}

void Tarvik::setProcessType(TarvikProcessType processType) {
    processType_.store(processType);
    switch (processType) {
        case TarvikProcessTypeShake:
            // Shake detection starts here once it exists.
            break;
        case TarvikProcessTypeManual:
            // Deliberately nothing more: no instruction overlay, and shake detection that an
            // earlier type started keeps running.
            return;
        case TarvikProcessTypeScreenshot:
            // Screenshot detection starts here once it exists.
            break;
        default:
            break;
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
            // The instruction overlay is shown here once the overlays exist.
        }
    }
    if (processType != TarvikProcessTypeShake) {
        // Shake detection stops here once it exists.
    }
}

void Tarvik::presentReportIssueController() {
    if (processType() == TarvikProcessTypeManual) {
        launchIssueSubmission();
    }
}

void Tarvik::launchIssueSubmission() {
    // While the reporter is on screen further triggers are ignored; the reporter window and
    // its check arrive with the reporter interface.
    {
        std::lock_guard lock(mutex_);
        submissionDialogStartDate_ = Runtime::current().clock().mediaTime();
    }
    // The screenshot, the report session, the screenshot editor and its window follow here.
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
