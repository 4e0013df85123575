#include "Models/TVKSubmission.h"

#include <tarvik/Errors.h>
#include <tarvik/Tarvik.h>

#include "Helpers/NSUserDefaults+Tarvik.h"
#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKFileHelper.h"
#include "Helpers/TVKLogger.h"
#include "Helpers/TVKSubmissionOperation.h"
#include "Helpers/UIApplication+Tarvik.h"
#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/AtomicWrite.h"
#include "Platform/CallStack.h"
#include "Platform/Image.h"
#include "Platform/JsonValue.h"
#include "Platform/PathUtilities.h"
#include "Platform/PropertyList.h"
#include "Platform/Runtime.h"
#include "Public/DebugConsole.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <future>
#include <random>

namespace tarvik {

namespace fs = std::filesystem;

namespace {

// How long the gathering of an issue waits for the main thread to hand over the host's
// attachments (a main queue that is not running must not hold a report back for ever).
constexpr auto kAttachmentHandOverWait = std::chrono::seconds(2);

std::string newUppercaseUuid() {
    static std::mutex mutex;
    static std::mt19937_64 generator{std::random_device{}()};
    std::uint64_t high, low;
    {
        std::lock_guard lock(mutex);
        high = generator();
        low = generator();
    }
    high = (high & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;  // version 4
    low = (low & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;    // RFC 4122 variant
    return fmt::format("{:08X}-{:04X}-{:04X}-{:04X}-{:012X}", high >> 32, (high >> 16) & 0xFFFF,
                       high & 0xFFFF, low >> 48, low & 0xFFFFFFFFFFFFull);
}

std::string trimmed(const std::string& text) {
    auto isBlank = [](unsigned char c) { return std::isspace(c) != 0; };
    auto begin = std::find_if_not(text.begin(), text.end(), isBlank);
    auto end = std::find_if_not(text.rbegin(), text.rend(), isBlank).base();
    return begin < end ? std::string(begin, end) : std::string();
}

std::string lowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    if (from.empty()) {
        return;
    }
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
}

void writePropertyList(const Dictionary& dictionary, const std::string& path) {
    plist::writeFileAtomically(Value(dictionary), path);
}

}  // namespace

TVKSubmission::TVKSubmission()
    : uuid_(newUppercaseUuid()),
      createdDate_(Runtime::current().clock().now()),
      submissionStatus_(TVKSubmissionStatusProcessing),
      urlsOfFilesToCopy_(std::set<std::string>{}),
      urlsOfAlreadyCopiedFiles_(std::set<std::string>{}) {}

TVKSubmission::TVKSubmission(std::string uuid)
    : uuid_(std::move(uuid)), submissionStatus_(TVKSubmissionStatusQueued) {}

void TVKSubmission::createInitialSubmissionPaths() {
    TVKFileHelper::createDirectoryAtPath(userAttachmentsFolderPath());
    TVKFileHelper::createDirectoryAtPath(tarvikAttachmentsFolderPath());
    TVKFileHelper::createFileAtPath(httpBodyFilePath());
}

std::string TVKSubmission::tarvikCacheFolderPath() {
    return TVKDirectoryLayout::cacheFolderPath();
}

std::optional<std::string> TVKSubmission::submissionStatusFolderNameForStatus(
    TVKSubmissionStatus status) {
    if (status < TVKSubmissionStatusProcessing || status > TVKSubmissionStatusSent) {
        return std::nullopt;
    }
    return TVKDirectoryLayout::statusFolderName(static_cast<TVKDirectoryLayout::Status>(status));
}

Date TVKSubmission::createdDate() const {
    std::lock_guard lock(mutex_);
    return createdDate_;
}

void TVKSubmission::setCreatedDate(Date date) {
    std::lock_guard lock(mutex_);
    createdDate_ = date;
}

std::uint64_t TVKSubmission::retryCounter() const {
    std::lock_guard lock(mutex_);
    return retryCounter_;
}

void TVKSubmission::setRetryCounter(std::uint64_t counter) {
    std::lock_guard lock(mutex_);
    retryCounter_ = counter;
}

TVKSubmissionStatus TVKSubmission::submissionStatus() const {
    std::lock_guard lock(mutex_);
    return submissionStatus_;
}

bool TVKSubmission::includeEventAttachments() const {
    std::lock_guard lock(mutex_);
    return includeEventAttachments_;
}

void TVKSubmission::setIncludeEventAttachments(bool include) {
    std::lock_guard lock(mutex_);
    includeEventAttachments_ = include;
}

std::optional<std::set<std::string>> TVKSubmission::urlsOfFilesToCopy() const {
    std::lock_guard lock(mutex_);
    return urlsOfFilesToCopy_;
}

std::optional<std::set<std::string>> TVKSubmission::urlsOfAlreadyCopiedFiles() const {
    std::lock_guard lock(mutex_);
    return urlsOfAlreadyCopiedFiles_;
}

std::set<std::string> TVKSubmission::attachedFilesUrls() const {
    {
        std::lock_guard lock(mutex_);
        if (urlsOfAlreadyCopiedFiles_) {
            return *urlsOfAlreadyCopiedFiles_;
        }
    }
    return filesInFolder();
}

// A submission loaded from disk no longer knows which files it copied in; the folder does.
// The paths are spelt as the copying spells them, so the set, and with it the order of the
// parts, is the same as that of the object that made the submission.
std::set<std::string> TVKSubmission::filesInFolder() const {
    std::set<std::string> files;
    for (const std::string& folder : {tarvikAttachmentsFolderPath(), userAttachmentsFolderPath()}) {
        std::error_code error;
        for (fs::directory_iterator it(folder, error), end; !error && it != end;
             it.increment(error)) {
            std::string name = it->path().filename().string();
            // An archive left by a build that was cut short is no file of the submission.
            bool strayArchive = folder == tarvikAttachmentsFolderPath() && name == "temp.zip";
            std::error_code ignored;
            if (it->is_regular_file(ignored) && !strayArchive) {
                files.insert(appendingPathComponent(folder, name));
            }
        }
    }
    return files;
}

std::optional<std::string> TVKSubmission::submissionFolderPath() const {
    return submissionFolderPathForStatus(submissionStatus());
}

std::optional<std::string> TVKSubmission::submissionFolderPathForStatus(
    TVKSubmissionStatus status) const {
    std::optional<std::string> statusFolder = statusFolderPathForStatus(status);
    if (!statusFolder) {
        return std::nullopt;
    }
    return appendingPathComponent(*statusFolder, uuid_);
}

std::optional<std::string> TVKSubmission::statusFolderPathForStatus(
    TVKSubmissionStatus status) const {
    std::string typeFolder = submissionTypeFolderPathOfKind();
    std::optional<std::string> name = submissionStatusFolderNameForStatus(status);
    if (!name) {
        return std::nullopt;
    }
    return appendingPathComponent(typeFolder, *name);
}

std::string TVKSubmission::submissionTypeFolderPathOfKind() const {
    throw InternalInconsistencyError();
}

// Paths inside the folder. With a status that names no folder they are relative to nothing,
// so nothing is ever written outside the SDK's tree.
std::string TVKSubmission::userAttachmentsFolderPath() const {
    return appendingPathComponent(submissionFolderPath().value_or(""), "user_attachments");
}

std::string TVKSubmission::tarvikAttachmentsFolderPath() const {
    return appendingPathComponent(submissionFolderPath().value_or(""),
                                  tarvikAttachmentsFolderName());
}

std::string TVKSubmission::appIconFilePath() const {
    return appendingPathComponent(tarvikAttachmentsFolderPath(), "app_icon.png");
}

std::string TVKSubmission::userTrackingLogsFilePath() const {
    return appendingPathComponent(tarvikAttachmentsFolderPath(), "user_tracking_logs.txt");
}

std::string TVKSubmission::systemLogsFilePath() const {
    return appendingPathComponent(tarvikAttachmentsFolderPath(), "system_logs.txt");
}

std::string TVKSubmission::debugLogsFilePath() const {
    return appendingPathComponent(tarvikAttachmentsFolderPath(), "debug_logs.txt");
}

std::string TVKSubmission::userDefaultsFilePath() const {
    return appendingPathComponent(tarvikAttachmentsFolderPath(), "user_defaults.json");
}

std::string TVKSubmission::httpBodyFilePath() const {
    return appendingPathComponent(submissionFolderPath().value_or(""), "httpBody.txt");
}

std::string TVKSubmission::retryDateFilePath() const {
    return appendingPathComponent(submissionFolderPath().value_or(""), "retryDate.txt");
}

std::string TVKSubmission::metadataFilePath() const {
    return appendingPathComponent(submissionFolderPath().value_or(""), "metadata.plist");
}

std::string TVKSubmission::tarvikPropertiesFilePath() const {
    return appendingPathComponent(submissionFolderPath().value_or(""), "tarvik_properties.plist");
}

std::string TVKSubmission::userElapsedTimesFilePath() const {
    return appendingPathComponent(submissionFolderPath().value_or(""), "user_elapsed_times.plist");
}

std::string TVKSubmission::stackFilePath() const {
    throw InternalInconsistencyError();
}

std::string TVKSubmission::savedEventSubmissionDataURL() const {
    throw InternalInconsistencyError();
}

std::string TVKSubmission::tarvikAPIUrl() const {
    throw InternalInconsistencyError();
}

void TVKSubmission::saveEventSubmissionData(const Dictionary&) {
    throw InternalInconsistencyError();
}

void TVKSubmission::saveScreenshot(const Image&) {
    throw InternalInconsistencyError();
}

void TVKSubmission::saveMetadata(const Dictionary& metadata) {
    writePropertyList(metadata, metadataFilePath());
}

void TVKSubmission::saveUserProperties(const Dictionary& properties) {
    writePropertyList(properties, tarvikPropertiesFilePath());
}

void TVKSubmission::saveUserElapsedTimes(const Dictionary& elapsedTimes) {
    writePropertyList(elapsedTimes, userElapsedTimesFilePath());
}

void TVKSubmission::saveApplicationIcon() {
    std::optional<Image> icon = tarvik_appIcon();
    if (!icon) {
        return;
    }
    std::optional<Data> png = icon->pngRepresentation();
    if (!png) {
        return;
    }
    std::string path = appIconFilePath();
    writeBytesAtomically(std::string_view(reinterpret_cast<const char*>(png->data()), png->size()),
                         path);
    addAlreadyCopiedFile(path);
}

void TVKSubmission::attachFileFromUrl(const std::string& fileUrl) {
    std::lock_guard lock(mutex_);
    if (!urlsOfFilesToCopy_) {
        urlsOfFilesToCopy_.emplace();
    }
    urlsOfFilesToCopy_->insert(fileUrl);
}

void TVKSubmission::addAlreadyCopiedFile(const std::string& fileUrl) {
    std::lock_guard lock(mutex_);
    if (!urlsOfAlreadyCopiedFiles_) {
        urlsOfAlreadyCopiedFiles_.emplace();
    }
    urlsOfAlreadyCopiedFiles_->insert(fileUrl);
}

// Never inlined: the stack of an event drops exactly the frames of the capture, of this call
// and of its caller in the SDK.
[[gnu::noinline]] void TVKSubmission::copyAllFilesWithCompletionHandler(
    CompletionHandler completion) {
    Array stackFrames = currentStackFrames();
    std::shared_ptr<TVKSubmission> self = shared_from_this();
    Runtime::current().globalQueue().async(
        [self, stackFrames = std::move(stackFrames), completion = std::move(completion)] {
            self->gatherFiles(stackFrames);
            if (completion) {
                completion(self);
            }
        });
}

void TVKSubmission::gatherFiles(const Array& stackFrames) {
    Runtime& runtime = Runtime::current();
    std::shared_ptr<TVKSubmission> self = shared_from_this();

    // The facade answers this on the main thread by handing over the host's attachments.
    auto handedOver = std::make_shared<std::promise<void>>();
    std::future<void> handOver = handedOver->get_future();
    runtime.mainQueue().async([self, handedOver] {
        Runtime::current().notificationCenter().post(TarvikNotificationDidCallToCopyAllFiles, self);
        handedOver->set_value();
    });

    TVKLogger::trimLogs();
    std::shared_ptr<TVKLogger> logger = TVKLogger::sharedInstance();
    copyFileToTarvikAttachmentsFolder(logger->userTrackingLogFilePath());
    copyFileToTarvikAttachmentsFolder(logger->systemLogFilePath());
    copyFileToTarvikAttachmentsFolder(logger->debugLogFilePath());

    if (Tarvik::sharedInstance().collectUserDefaults()) {
        std::string path = userDefaultsFilePath();
        TVKFileHelper::writeDictionary(tarvik_userDefaults(), path);
        addAlreadyCopiedFile(path);
    }

    if (isEventSubmissionKind()) {
        std::string path = stackFilePath();
        TVKFileHelper::writeString(json::compactText(Value(stackFrames)).value_or("[]"), path);
        addAlreadyCopiedFile(path);
    }

    if (includeEventAttachments() || isIssueSubmissionKind()) {
        // An issue gets the host's attachments only through the hand-over: wait for it, so that
        // they are not missed because the main thread came second.
        if (isIssueSubmissionKind()) {
            handOver.wait_for(kAttachmentHandOverWait);
        }
        copyUserAttachedFiles();
    }
}

void TVKSubmission::copyFileToTarvikAttachmentsFolder(const std::string& sourcePath) {
    std::string folder = tarvikAttachmentsFolderPath();
    TVKFileHelper::copyFileFromPath(sourcePath, folder);
    addAlreadyCopiedFile(appendingPathComponent(folder, lastPathComponent(sourcePath)));
}

void TVKSubmission::copyUserAttachedFiles() {
    std::set<std::string> sources = urlsOfFilesToCopy().value_or(std::set<std::string>{});
    std::string folder = userAttachmentsFolderPath();
    std::set<std::string> taken;
    for (const std::string& source : sources) {
        std::string destination =
            appendingPathComponent(folder, unusedFileName(lastPathComponent(source), taken));
        copyHostFile(source, destination);
        addAlreadyCopiedFile(destination);
    }
}

std::string TVKSubmission::unusedFileName(const std::string& fileName,
                                          std::set<std::string>& taken) {
    std::string extension = pathExtension(fileName);
    std::string base =
        extension.empty() ? fileName : fileName.substr(0, fileName.size() - extension.size() - 1);
    std::string suffix = extension.empty() ? "" : "." + extension;
    std::string name = fileName;
    for (int number = 2; taken.count(name) != 0; ++number) {
        name = fmt::format("{}-{}{}", base, number, suffix);
    }
    taken.insert(name);
    return name;
}

void TVKSubmission::copyHostFile(const std::string& source, const std::string& destination) {
    // The file as it is now, also when the host named it through a link: a link copied as a
    // link would dangle (a relative one) or follow the host's file as it changes.
    TVKFileHelper::removeFileAtPath(destination);
    std::error_code error;
    fs::copy_file(source, destination, error);
    if (error) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- FAILED to copy file: {} \n into folder : {} \n {}", source,
                        userAttachmentsFolderPath(), error.message()));
    }
}

namespace {
// Taken around every move or removal of a submission folder and every write into a queued one
// from another thread (the retry pass), so that a write never lands in a folder that is being
// deleted and brings it back half empty.
std::mutex& folderChangeMutex() {
    static std::mutex mutex;
    return mutex;
}
}  // namespace

void TVKSubmission::setSubmissionStatus(TVKSubmissionStatus status) {
    TVKSubmissionStatus current = submissionStatus();
    std::optional<std::string> oldFolder = submissionFolderPath();
    if (current == TVKSubmissionStatusProcessing && status == TVKSubmissionStatusQueued) {
        if (oldFolder) {
            std::lock_guard lock(folderChangeMutex());
            TVKFileHelper::moveFileFromPath(*oldFolder, *statusFolderPathForStatus(status));
        }
        std::optional<std::string> newFolder = submissionFolderPathForStatus(status);
        std::lock_guard lock(mutex_);
        if (urlsOfAlreadyCopiedFiles_ && oldFolder && newFolder) {
            std::set<std::string> rewritten;
            for (std::string url : *urlsOfAlreadyCopiedFiles_) {
                replaceAll(url, *oldFolder, *newFolder);
                rewritten.insert(std::move(url));
            }
            urlsOfAlreadyCopiedFiles_ = std::move(rewritten);
        }
    } else if (current == TVKSubmissionStatusQueued && status == TVKSubmissionStatusSent &&
               Tarvik::sharedInstance().debug() && oldFolder) {
        std::lock_guard lock(folderChangeMutex());
        TVKFileHelper::moveFileFromPath(*oldFolder, *statusFolderPathForStatus(status));
    }
    std::lock_guard lock(mutex_);
    submissionStatus_ = status;
}

bool TVKSubmission::sendSubmission() {
    return TVKSubmissionOperation::enqueue(
        std::make_shared<TVKSubmissionOperation>(shared_from_this()));
}

void TVKSubmission::removeFromPending() {
    if (Tarvik::sharedInstance().debug() && submissionStatus() == TVKSubmissionStatusQueued) {
        setSubmissionStatus(TVKSubmissionStatusSent);
        return;
    }
    if (std::optional<std::string> folder = submissionFolderPath()) {
        std::lock_guard lock(folderChangeMutex());
        TVKFileHelper::removeFileAtPath(*folder);
    }
}

bool TVKSubmission::replaceFileInFolder(const std::string& path, const Data& contents) {
    std::optional<std::string> folder = submissionFolderPath();
    std::lock_guard lock(folderChangeMutex());
    if (!folder || ::access(folder->c_str(), F_OK) != 0) {
        return false;
    }
    TVKFileHelper::removeFileAtPath(path);
    TVKFileHelper::createFileAtPath(path, contents);
    return true;
}

std::vector<std::shared_ptr<TVKSubmission>> TVKSubmission::processCacheFolderForSubmissions() {
    std::vector<std::shared_ptr<TVKSubmission>> pending =
        processCacheFolderForSubmissions(TVKEventSubmission::queuedFolderPath());
    std::vector<std::shared_ptr<TVKSubmission>> issues =
        processCacheFolderForSubmissions(TVKIssueSubmission::queuedFolderPath());
    pending.insert(pending.end(), issues.begin(), issues.end());
    return pending;
}

std::vector<std::shared_ptr<TVKSubmission>> TVKSubmission::processCacheFolderForSubmissions(
    const std::string& statusFolderPath) {
    bool issues =
        statusFolderPath.find(TVKIssueSubmission::submissionTypeFolderPath()) != std::string::npos;
    std::vector<std::shared_ptr<TVKSubmission>> found;
    for (const std::string& entry : TVKFileHelper::fileURLsInDirectoryAtPath(statusFolderPath)) {
        std::error_code error;
        if (!fs::is_directory(fs::symlink_status(entry, error)) ||
            entry.find("_attachments") != std::string::npos) {
            continue;
        }
        std::string uuid = lastPathComponent(entry);
        std::shared_ptr<TVKSubmission> submission =
            issues ? std::static_pointer_cast<TVKSubmission>(TVKIssueSubmission::withUUID(uuid))
                   : std::static_pointer_cast<TVKSubmission>(TVKEventSubmission::withUUID(uuid));
        if (std::optional<Date> created = TVKFileHelper::creationDateOfFileAtPath(entry)) {
            submission->setCreatedDate(*created);
        }
        found.push_back(std::move(submission));
    }
    logToConsoleIfDebug(fmt::format("Loaded list of pending {} submissions (size: {})",
                                    issues ? "issue" : "event", found.size()));
    return found;
}

[[gnu::noinline]] Array TVKSubmission::currentStackFrames() {
    std::vector<std::string> symbols = callStackSymbols();
    Array frames;
    std::uint64_t index = 0;
    for (size_t i = 3; i < symbols.size(); ++i) {
        frames.push_back(stackFrameFromSymbol(symbols[i], index++));
    }
    return frames;
}

Dictionary TVKSubmission::stackFrameFromSymbol(const std::string& symbol, std::uint64_t index) {
    std::string line = symbol;
    while (line.find("  ") != std::string::npos) {
        replaceAll(line, "  ", " ");
    }
    std::vector<std::string> components;
    for (size_t start = 0;;) {
        size_t blank = line.find(' ', start);
        components.push_back(line.substr(start, blank - start));
        if (blank == std::string::npos) {
            break;
        }
        start = blank + 1;
    }
    components.resize(std::max<size_t>(components.size(), 3));
    std::string lib = trimmed(components[1]);
    std::string executable = Runtime::current()
                                 .platform()
                                 .mainBundle()
                                 .stringForInfoKey("CFBundleExecutable")
                                 .value_or("");
    std::string code = line;
    replaceAll(code, components[0] + " " + components[1] + " " + components[2], "");
    return Dictionary{
        {"index", static_cast<std::int64_t>(index)},
        {"lib", lib},
        {"code", trimmed(code)},
        {"app_frame", lowercased(lib) == lowercased(executable)},
    };
}

}  // namespace tarvik
