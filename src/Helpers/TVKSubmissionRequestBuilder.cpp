#include "Helpers/TVKSubmissionRequestBuilder.h"

#include <tarvik/Tarvik.h>

#include "Helpers/NSDate+Tarvik.h"
#include "Helpers/TVKFileHelper.h"
#include "Helpers/Tarvik_ZipException.h"
#include "Helpers/UIDevice+Tarvik.h"
#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/MimeTypes.h"
#include "Platform/PathUtilities.h"
#include "Platform/PropertyList.h"
#include "Platform/Runtime.h"
#include "Public/DebugConsole.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <future>

#include <fcntl.h>
#include <unistd.h>

namespace tarvik {

namespace {

// How long a builder off the main thread waits for the main queue to read the orientation
// before reading it itself (a host that does not run its main loop must not stall sending).
constexpr auto kMainQueueReadWait = std::chrono::seconds(1);

std::string fileNameWithoutExtension(const std::string& fileName) {
    std::string extension = pathExtension(fileName);
    return extension.empty() ? fileName
                             : fileName.substr(0, fileName.size() - extension.size() - 1);
}

std::optional<std::string> stringFor(const Dictionary& dictionary, const std::string& key) {
    auto it = dictionary.find(key);
    if (it == dictionary.end() || it->second.isNull()) {
        return std::nullopt;
    }
    return it->second.description();
}

}  // namespace

TVKSubmissionRequestBuilder::TVKSubmissionRequestBuilder(std::shared_ptr<TVKSubmission> submission)
    : submission_(std::move(submission)) {
    Runtime::current().platform().device().setBatteryMonitoringEnabled(true);
}

TVKSubmissionRequestBuilder::~TVKSubmissionRequestBuilder() {
    if (httpDataAppender_ >= 0) {
        ::close(httpDataAppender_);
    }
}

HttpRequest TVKSubmissionRequestBuilder::buildPOSTSubmissionRequest() {
    addDataToHttpBody();

    HttpRequest request;
    request.url = submission_->tarvikAPIUrl();
    request.cachePolicy = HttpRequest::kReloadIgnoringLocalCacheData;
    request.timeoutInterval = 60;
    request.method = "POST";
    request.setValue(Tarvik::sharedInstance().apiKey(), "X-Tarvik-Api-Key");
    request.setValue("ios", "X-Tarvik-Device-Type");
    DeviceProbes& device = Runtime::current().platform().device();
    // Like the configuration request: no identifier is better than an empty one.
    if (std::string identifier = device.identifierForVendor(); !identifier.empty()) {
        request.setValue(identifier, "X-Tarvik-Device-Identifier");
    }
    request.setValue(device.deviceName(), "X-Tarvik-Device-Name");
    request.setValue(fmt::format("multipart/form-data; boundary={}", kMultipartBoundary),
                     "Content-Type");
    request.setValue(
        std::to_string(TVKFileHelper::sizeOfFileAtPath(submission_->httpBodyFilePath())),
        "Content-Length");
    request.bodyFilePath = submission_->httpBodyFilePath();
    return request;
}

bool TVKSubmissionRequestBuilder::isEventSubmission() const {
    return tarvik::isEventSubmission(*submission_);
}

bool TVKSubmissionRequestBuilder::isTarvikFile(const std::string& fileUrl) const {
    return fileUrl.find(appendingPathComponent(submission_->uuid(),
                                               TVKSubmission::tarvikAttachmentsFolderName())) !=
           std::string::npos;
}

std::string TVKSubmissionRequestBuilder::buildHttpBodyEntryWithName(const std::string& name,
                                                                    const std::string& value) {
    return fmt::format("--{}\r\nContent-Disposition: form-data; name=\"{}\"\r\n\r\n{}\r\n",
                       kMultipartBoundary, name, value);
}

std::string TVKSubmissionRequestBuilder::contentTypeByFileExtension(const std::string& extension) {
    return mimeTypeForExtension(extension).value_or("application/octet-stream");
}

void TVKSubmissionRequestBuilder::appendString(const std::string& text) {
    for (size_t done = 0; httpDataAppender_ >= 0 && done < text.size();) {
        ssize_t n = ::write(httpDataAppender_, text.data() + done, text.size() - done);
        if (n <= 0) {
            return;
        }
        done += static_cast<size_t>(n);
    }
}

void TVKSubmissionRequestBuilder::addField(const std::string& name, const std::string& value) {
    appendString(buildHttpBodyEntryWithName(name, value));
}

bool TVKSubmissionRequestBuilder::hasCompleteBody() const {
    std::string closing = fmt::format("--{}--\r\n", kMultipartBoundary);
    off_t size = ::lseek(httpDataAppender_, 0, SEEK_END);
    if (size < static_cast<off_t>(closing.size())) {
        return false;
    }
    std::string tail(closing.size(), '\0');
    ssize_t read = ::pread(httpDataAppender_, tail.data(), tail.size(),
                           size - static_cast<off_t>(closing.size()));
    return read == static_cast<ssize_t>(tail.size()) && tail == closing;
}

void TVKSubmissionRequestBuilder::addDataToHttpBody() {
    // Opened only while writing: operations wait in the queue with their builders, and a
    // descriptor each would pile up behind a send that hangs.
    httpDataAppender_ =
        ::open(submission_->httpBodyFilePath().c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
    if (httpDataAppender_ < 0) {
        return;
    }
    writeBodyUnlessWhole();
    ::close(httpDataAppender_);
    httpDataAppender_ = -1;
}

void TVKSubmissionRequestBuilder::writeBodyUnlessWhole() {
    // A body written once is sent unchanged by every later attempt. One that does not end with
    // the closing boundary was cut short (the app was killed while writing it): it is written
    // again rather than sent torn, which the service would refuse for good.
    if (::lseek(httpDataAppender_, 0, SEEK_END) > 0) {
        if (hasCompleteBody()) {
            return;
        }
        [[maybe_unused]] int ignored = ::ftruncate(httpDataAppender_, 0);
    }
    std::optional<Value> saved = plist::readFile(submission_->tarvikPropertiesFilePath());
    Dictionary properties = saved && saved->isDictionary() ? *saved->asDictionary() : Dictionary{};
    addSubmissionDetailsWith(properties);
    addUserPropertiesWith(properties);
    addDeviceInformation();
    addUserElapsedTimes();
    addMetadata();
    addAllAttachedFiles();
    appendString(fmt::format("--{}--\r\n", kMultipartBoundary));
}

void TVKSubmissionRequestBuilder::addSubmissionDetailsWith(const Dictionary& properties) {
    addField("uuid", submission_->uuid());
    bool event = isEventSubmission();
    if (event) {
        std::optional<Value> data = plist::readFile(submission_->savedEventSubmissionDataURL());
        if (data && data->isDictionary()) {
            for (const auto& [key, value] : *data->asDictionary()) {
                addField(key, value.description());
            }
        }
    }
    addField(event ? "created_date" : "reported_date",
             tarvik_ios8601Representation(submission_->createdDate()));
    if (!event) {
        if (auto comments = stringFor(properties, TarvikUserPropertyCommentsKey)) {
            addField("comments", *comments);
        }
    }
}

void TVKSubmissionRequestBuilder::addUserPropertiesWith(const Dictionary& properties) {
    const std::pair<const char*, const std::string*> fromProperties[] = {
        {"user_properties[framework_version]", &TarvikUserPropertyVersionKey},
        {"user_properties[identifier]", &TarvikUserPropertyIdentifierKey},
        {"user_properties[username]", &TarvikUserPropertyUsernameKey},
        {"user_properties[full_name]", &TarvikUserPropertyFullNameKey},
        {"user_properties[email]", &TarvikUserPropertyEmailKey},
    };
    for (const auto& [field, key] : fromProperties) {
        if (auto value = stringFor(properties, *key)) {
            addField(field, *value);
        }
    }
    Bundle bundle = Runtime::current().platform().mainBundle();
    const std::pair<const char*, const char*> fromBundle[] = {
        {"user_properties[app_version]", "CFBundleShortVersionString"},
        {"user_properties[exec_name]", "CFBundleExecutable"},
        {"user_properties[build_version]", "CFBundleVersion"},
    };
    for (const auto& [field, key] : fromBundle) {
        if (auto value = bundle.stringForInfoKey(key)) {
            addField(field, *value);
        }
    }
    auto session = properties.find(TarvikUserPropertySessionLength);
    double sessionLength = session == properties.end() ? 0.0 : session->second.doubleValue();
    addField("user_properties[session_length]", fmt::format("{:.6f}", sessionLength));
    addField("user_properties[app_name]", bundle.stringForInfoKey("CFBundleName").value_or(""));
    addField("user_properties[app_bundle_identifier]", bundle.bundleIdentifier().value_or(""));
}

void TVKSubmissionRequestBuilder::addDeviceInformation() {
    DeviceProbes& device = Runtime::current().platform().device();
    addField("device_info[device_type]", tarvik_hardwareName());
    if (auto version = device.operatingSystemVersionString()) {
        addField("device_info[os_version]", *version);
    }
    if (Tarvik::sharedInstance().saveUserLocation()) {
        LocationCoordinate location = tarvik_userLocation();
        if (isValidCoordinate(location)) {
            addField("device_info[gps_latitude]", fmt::format("{:.6f}", location.latitude));
            addField("device_info[gps_longitude]", fmt::format("{:.6f}", location.longitude));
        }
    }
    BatteryStatus battery = device.batteryStatus();
    // An unknown level (-1) is sent as 100: the absolute value is taken on purpose.
    addField("device_info[battery_percentage]",
             fmt::format("{:.6f}", std::fabs(battery.level) * 100));
    bool charging = battery.state == BatteryState::Charging || battery.state == BatteryState::Full;
    addField("device_info[battery_charging]", charging ? "1" : "0");
    device.setBatteryMonitoringEnabled(false);
    if (auto carrier = tarvik_carrierName()) {
        addField("device_info[carrier_name]", *carrier);
    }
    if (auto wifi = tarvik_wifiNetworkName()) {
        addField("device_info[wifi_network_name]", *wifi);
    }
    std::int64_t used = tarvik_memoryUsed();
    addField("device_info[memory_used]", std::to_string(used));
    addField("device_info[memory_total]", std::to_string(used + tarvik_memoryFree()));
    addField("device_info[disk_used]", std::to_string(tarvik_diskUsed()));
    addField("device_info[disk_total]", std::to_string(tarvik_diskTotal()));
    addField("device_info[jailbroken]", tarvik_isJailbroken() ? "1" : "0");
    // A locale without a country has no region, and no locale has neither: nothing is sent
    // rather than an empty value.
    if (std::string region = tarvik_deviceRegion(); !region.empty()) {
        addField("device_info[region]", region);
    }
    if (std::string language = tarvik_deviceLanguage(); !language.empty()) {
        addField("device_info[lang]", language);
    }
    addField("device_info[orientation]", std::to_string(statusBarOrientationFromMainQueue()));
}

std::int64_t TVKSubmissionRequestBuilder::statusBarOrientationFromMainQueue() const {
    Runtime& runtime = Runtime::current();
    DeviceProbes& device = runtime.platform().device();
    if (runtime.mainQueue().isMainThread()) {
        return device.statusBarOrientation();
    }
    auto orientation = std::make_shared<std::promise<std::int64_t>>();
    std::future<std::int64_t> answer = orientation->get_future();
    runtime.mainQueue().async(
        [orientation, &device] { orientation->set_value(device.statusBarOrientation()); });
    if (answer.wait_for(kMainQueueReadWait) == std::future_status::ready) {
        return answer.get();
    }
    return device.statusBarOrientation();
}

void TVKSubmissionRequestBuilder::addFieldsFromPropertyList(const std::string& path,
                                                            const std::string& fieldFormat) {
    std::optional<Value> saved = plist::readFile(path);
    if (!saved || !saved->isDictionary()) {
        return;
    }
    for (const auto& [key, value] : *saved->asDictionary()) {
        if (!value.isNull()) {
            addField(fmt::format(fmt::runtime(fieldFormat), key), value.description());
        }
    }
}

void TVKSubmissionRequestBuilder::addUserElapsedTimes() {
    addFieldsFromPropertyList(submission_->userElapsedTimesFilePath(), "benchmark[{}]");
}

void TVKSubmissionRequestBuilder::addMetadata() {
    addFieldsFromPropertyList(submission_->metadataFilePath(), "metadata[{}]");
}

void TVKSubmissionRequestBuilder::addAllAttachedFiles() {
    for (const std::string& url : submission_->attachedFilesUrls()) {
        std::string extension = pathExtension(url);
        std::string contentType = contentTypeByFileExtension(extension);
        std::string fileName = lastPathComponent(url);
        std::string baseName = fileNameWithoutExtension(fileName);
        // The SDK's own files arrive under their base names ("system_logs", "screenshot", ...).
        std::string fieldName = isTarvikFile(url) ? baseName : "attachments[]";
        bool zip = TVKFileHelper::shouldZipFileWithExtension(extension, contentType);
        if (zip) {
            fileName = baseName + ".zip";
            contentType = "application/zip";
        }
        attachedFileHeaderLine_ = fmt::format(
            "--{}\r\nContent-Disposition: form-data; name=\"{}\"; filename=\"{}\"\r\n"
            "Content-Type: {}\r\n\r\n",
            kMultipartBoundary, fieldName, fileName, contentType);
        currentAttachingFileName_ = fileName;
        if (zip) {
            zipThenAttachDataToHttpBodyFromFileUrl(url);
        } else {
            attachDataToHttpBodyFromFileUrl(url);
        }
        // Also after a file that was left out: its bare line is part of the format.
        appendString("\r\n");
    }
}

void TVKSubmissionRequestBuilder::zipThenAttachDataToHttpBodyFromFileUrl(
    const std::string& fileUrl) {
    // The archive of an SDK file lies with the SDK's files, so it is not cut off by the limit
    // either; the archive of a host file is.
    std::string folder = isTarvikFile(fileUrl) ? submission_->tarvikAttachmentsFolderPath()
                                               : submission_->submissionFolderPath().value_or("");
    std::string archive = appendingPathComponent(folder, "temp.zip");
    bool zipped = false;
    try {
        zipped = TVKFileHelper::zipFileAtPath(fileUrl, archive);
    } catch (const Tarvik_ZipException& error) {
        // A file that cannot be packed is left out, like one that cannot be read: a sending
        // thread must not die of it.
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- FAILED to zip file: {} \n {}", fileUrl, error.what()));
    }
    if (zipped) {
        attachDataToHttpBodyFromFileUrl(archive);
    } else {
        TVKFileHelper::removeFileAtPath(archive);
    }
}

void TVKSubmissionRequestBuilder::attachDataToHttpBodyFromFileUrl(const std::string& fileUrl) {
    std::uint64_t size = TVKFileHelper::sizeOfFileAtPath(fileUrl);
    if (size > TarvikFileSizeLimit && !isTarvikFile(fileUrl)) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Warning - file ({}) is too large: {}", fileUrl, size));
    } else {
        appendString(attachedFileHeaderLine_);
        TVKFileHelper::appendFileAtPath(fileUrl, submission_->httpBodyFilePath());
    }
    if (fileUrl.find("temp.zip") != std::string::npos) {
        TVKFileHelper::removeFileAtPath(fileUrl);
    }
}

}  // namespace tarvik
