#include "Helpers/TVKEventConfigurationManager.h"

#include <tarvik/Tarvik.h>
#include <tarvik/TarvikConstants.h>

#include "Helpers/NSString+Tarvik.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/TVKTrustManager.h"
#include "Platform/JsonValue.h"
#include "Platform/Runtime.h"
#include "Public/DebugConsole.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string_view>
#include <utility>

namespace tarvik {

namespace {

// Percent-encodes everything but the unreserved characters, so that names with spaces, "&",
// "+" or non-ASCII letters reach the server as they are.
std::string percentEncoded(std::string_view text) {
    std::string encoded;
    for (unsigned char c : text) {
        bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                          (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~';
        if (unreserved) {
            encoded += static_cast<char>(c);
        } else {
            encoded += fmt::format("%{:02X}", c);
        }
    }
    return encoded;
}

// "name=value", or the bare name when there is no value.
std::string queryItem(std::string_view name, const std::optional<std::string>& value) {
    std::string item = percentEncoded(name);
    if (value) {
        item += "=" + percentEncoded(*value);
    }
    return item;
}

std::vector<std::string> digestsIn(const std::optional<Array>& digests) {
    std::vector<std::string> strings;
    if (digests) {
        for (const Value& entry : *digests) {
            if (const std::string* digest = entry.asString()) {
                strings.push_back(*digest);
            }
        }
    }
    return strings;
}

std::optional<Array> arrayMember(const Dictionary& dictionary, const std::string& key) {
    auto it = dictionary.find(key);
    if (it == dictionary.end() || !it->second.isArray()) {
        return std::nullopt;
    }
    return *it->second.asArray();
}

}  // namespace

std::shared_ptr<TVKEventConfigurationManager> TVKEventConfigurationManager::sharedInstance() {
    return Runtime::current().sharedInstance<TVKEventConfigurationManager>();
}

void TVKEventConfigurationManager::startTimer() {
    auto manager = sharedInstance();
    if (!manager->hasTimer()) {
        manager->resetTimer();
    }
}

void TVKEventConfigurationManager::setInterval(double seconds) {
    sharedInstance()->changeInterval(seconds);
}

bool TVKEventConfigurationManager::shouldUploadDataForEventTitle(
    const std::optional<std::string>& title) {
    if (!TVKSettingsManager::eventSubmissionEnabled()) {
        return false;
    }
    auto manager = sharedInstance();
    // A missing title has no digest, so no message list can mute it.
    if (title && manager->isListed(&TVKEventConfigurationManager::mutedMessages_,
                                   tarvik_MD5Digest(*title))) {
        return false;
    }
    Platform& platform = Runtime::current().platform();
    Bundle bundle = platform.mainBundle();
    std::optional<std::string> identifier = bundle.bundleIdentifier();
    if (identifier && manager->isListed(&TVKEventConfigurationManager::mutedApplications_,
                                        tarvik_MD5Digest(*identifier))) {
        return false;
    }
    std::optional<std::string> version = bundle.stringForInfoKey("CFBundleShortVersionString");
    std::optional<std::string> build = bundle.stringForInfoKey("CFBundleVersion");
    if (version && build) {
        // A missing identifier reads "(null)", as the platform's string formatting writes it.
        std::string appVersion =
            fmt::format("{}:{}-{}", identifier.value_or("(null)"), *version, *build);
        if (manager->isListed(&TVKEventConfigurationManager::mutedApplicationVersions_,
                              tarvik_MD5Digest(appVersion))) {
            return false;
        }
    }
    // An unavailable vendor identifier has no digest, so the device is never muted.
    std::string device = platform.device().identifierForVendor();
    if (!device.empty() &&
        manager->isListed(&TVKEventConfigurationManager::mutedDevices_, tarvik_MD5Digest(device))) {
        return false;
    }
    return true;
}

void TVKEventConfigurationManager::setMutedMessages(const std::optional<Array>& digests) {
    sharedInstance()->replaceList(&TVKEventConfigurationManager::mutedMessages_, digests);
}

void TVKEventConfigurationManager::setMutedApplications(const std::optional<Array>& digests) {
    sharedInstance()->replaceList(&TVKEventConfigurationManager::mutedApplications_, digests);
}

void TVKEventConfigurationManager::setMutedApplicationVersions(
    const std::optional<Array>& digests) {
    sharedInstance()->replaceList(&TVKEventConfigurationManager::mutedApplicationVersions_,
                                  digests);
}

void TVKEventConfigurationManager::setMutedDevices(const std::optional<Array>& digests) {
    sharedInstance()->replaceList(&TVKEventConfigurationManager::mutedDevices_, digests);
}

TVKEventConfigurationManager::TVKEventConfigurationManager() = default;

TVKEventConfigurationManager::~TVKEventConfigurationManager() {
    shutdownTimer();
}

void TVKEventConfigurationManager::resetTimer() {
    // The timer holds the manager weakly: the main queue may outlive it.
    auto fire = [weakSelf = weak_from_this()] {
        if (auto self = weakSelf.lock()) {
            self->updateEventConfig();
        }
    };
    MainQueue& mainQueue = Runtime::current().mainQueue();
    Clock& clock = Runtime::current().clock();
    Date now = clock.now();
    double mediaNow = clock.mediaTime();
    double interval = 0;
    std::shared_ptr<Timer> replaced;
    {
        // Scheduled and stored under one lock. A new timer fires at once and its answer may
        // restart the timer from another thread; were the two steps apart, that later restart
        // could be the one replaced, leaving the older timer and interval running.
        std::lock_guard lock(mutex_);
        interval = intervalSeconds_;
        double wait = std::max(0.0, fetchPacing_.earliestNextFetch() - mediaNow);
        Date firstFire =
            now + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(wait));
        replaced = std::exchange(timer_, mainQueue.scheduleTimer(firstFire, interval, true, fire));
    }
    if (replaced) {
        replaced->invalidate();
    }
    logToConsoleIfDebug(
        fmt::format("Resetting the event configuration timer. Will wait {:f} seconds", interval));
}

void TVKEventConfigurationManager::shutdownTimer() {
    std::shared_ptr<Timer> timer;
    {
        std::lock_guard lock(mutex_);
        timer = std::exchange(timer_, nullptr);
    }
    if (timer) {
        timer->invalidate();
    }
}

void TVKEventConfigurationManager::updateEventConfig() {
    if (TVKSettingsManager::eventSubmissionEnabled()) {
        shutdownTimer();
        return;
    }
    {
        std::lock_guard lock(mutex_);
        fetchPacing_.recordFetch(Runtime::current().clock().mediaTime());
    }
    // The transport answers synchronously and may wait up to the request's time-out, so the
    // fetch gets a thread of its own rather than the main queue (which fires the timer), a
    // worker of the shared global pool (which it could hold for a minute) or the operation
    // queue (which sends submissions one at a time). The runtime waits for it before it
    // destroys the SDK's objects.
    Runtime::current().detachThread([self = shared_from_this()] { self->fetchEventConfig(); });
}

HttpRequest TVKEventConfigurationManager::buildRequest(const std::string& url) const {
    HttpRequest request;
    request.url = url;
    request.method = "GET";
    request.cachePolicy = HttpRequest::kReloadIgnoringLocalCacheData;
    request.timeoutInterval = 60;
    request.setValue(Tarvik::sharedInstance().apiKey(), "X-Tarvik-Api-Key");
    request.setValue("ios", "X-Tarvik-Device-Type");
    DeviceProbes& device = Runtime::current().platform().device();
    std::string identifier = device.identifierForVendor();
    if (!identifier.empty()) {
        request.setValue(identifier, "X-Tarvik-Device-Identifier");
    }
    request.setValue(device.deviceName(), "X-Tarvik-Device-Name");
    return request;
}

double TVKEventConfigurationManager::intervalSeconds() const {
    std::lock_guard lock(mutex_);
    return intervalSeconds_;
}

bool TVKEventConfigurationManager::hasTimer() const {
    std::lock_guard lock(mutex_);
    return timer_ != nullptr;
}

std::vector<std::string> TVKEventConfigurationManager::mutedMessages() const {
    return copyOf(&TVKEventConfigurationManager::mutedMessages_);
}

std::vector<std::string> TVKEventConfigurationManager::mutedApplications() const {
    return copyOf(&TVKEventConfigurationManager::mutedApplications_);
}

std::vector<std::string> TVKEventConfigurationManager::mutedApplicationVersions() const {
    return copyOf(&TVKEventConfigurationManager::mutedApplicationVersions_);
}

std::vector<std::string> TVKEventConfigurationManager::mutedDevices() const {
    return copyOf(&TVKEventConfigurationManager::mutedDevices_);
}

std::string TVKEventConfigurationManager::configurationUrl() {
    Bundle bundle = Runtime::current().platform().mainBundle();
    return fmt::format("https://{}/v1/event/config.json?{}&{}", TarvikDomainName,
                       queryItem("app_bundle_identifier", bundle.bundleIdentifier()),
                       queryItem("app_name", bundle.stringForInfoKey("CFBundleName")));
}

void TVKEventConfigurationManager::fetchEventConfig() {
    HttpRequest request = buildRequest(configurationUrl());
    HttpResult result = Runtime::current().platform().httpTransport().perform(
        request, [trustManager = TVKTrustManager::sharedInstance()](
                     const AuthenticationChallenge& challenge,
                     const ChallengeCompletionHandler& completionHandler) {
            trustManager->URLSession(challenge, completionHandler);
        });
    applyFetchResult(result);
}

void TVKEventConfigurationManager::applyFetchResult(const HttpResult& result) {
    if (result.response && result.response->statusCode == 200) {
        std::optional<Value> parsed = json::parseDocument(result.response->body);
        if (!parsed) {
            logToConsoleIfDebug("Error while trying to decode JSON data");
        }
        // An array carries no settings: it reads as an empty document.
        const Dictionary* document = parsed ? parsed->asDictionary() : nullptr;
        applyConfiguration(document ? *document : Dictionary{});
    }
    if (result.error) {
        logToConsoleIfDebug(fmt::format(
            "Error while trying to check event feature configuration: {}", *result.error));
    }
}

void TVKEventConfigurationManager::applyConfiguration(const Dictionary& document) {
    auto member = [&document](const std::string& key) -> const Value* {
        auto it = document.find(key);
        return it == document.end() ? nullptr : &it->second;
    };

    const Value* enabledValue = member("enabled");
    bool enabled = enabledValue && enabledValue->boolValue();
    TVKSettingsManager::setEventSubmissionEnabled(enabled);
    if (enabled) {
        shutdownTimer();
    }

    // Minutes to seconds in single precision, as the service's number is a float.
    const Value* minutesValue = member("check_interval");
    float minutes = minutesValue ? static_cast<float>(minutesValue->doubleValue()) : 0.0f;
    float seconds = minutes * 60.0f;
    if (static_cast<double>(seconds) != intervalSeconds()) {
        changeInterval(seconds);
    }

    const Value* ignoredValue = member("ignored");
    if (const Dictionary* ignored = ignoredValue ? ignoredValue->asDictionary() : nullptr) {
        replaceList(&TVKEventConfigurationManager::mutedMessages_,
                    arrayMember(*ignored, "messages"));
        replaceList(&TVKEventConfigurationManager::mutedApplications_,
                    arrayMember(*ignored, "apps"));
        replaceList(&TVKEventConfigurationManager::mutedApplicationVersions_,
                    arrayMember(*ignored, "versions"));
        replaceList(&TVKEventConfigurationManager::mutedDevices_, arrayMember(*ignored, "devices"));
    }
}

void TVKEventConfigurationManager::changeInterval(double seconds) {
    double interval = std::isnan(seconds) ? kMinimumSeconds
                                          : std::clamp(seconds, kMinimumSeconds, kMaximumSeconds);
    {
        std::lock_guard lock(mutex_);
        if (interval == intervalSeconds_) {
            return;
        }
        intervalSeconds_ = interval;
    }
    resetTimer();
}

void TVKEventConfigurationManager::replaceList(
    std::vector<std::string> TVKEventConfigurationManager::*list,
    const std::optional<Array>& digests) {
    std::vector<std::string> strings = digestsIn(digests);
    std::lock_guard lock(mutex_);
    this->*list = std::move(strings);
}

bool TVKEventConfigurationManager::isListed(
    std::vector<std::string> TVKEventConfigurationManager::*list, const std::string& digest) const {
    std::lock_guard lock(mutex_);
    const std::vector<std::string>& digests = this->*list;
    return std::find(digests.begin(), digests.end(), digest) != digests.end();
}

std::vector<std::string> TVKEventConfigurationManager::copyOf(
    std::vector<std::string> TVKEventConfigurationManager::*list) const {
    std::lock_guard lock(mutex_);
    return this->*list;
}

}  // namespace tarvik
