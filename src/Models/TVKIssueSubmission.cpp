#include "Models/TVKIssueSubmission.h"

#include <tarvik/TarvikConstants.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Platform/AtomicWrite.h"
#include "Platform/Image.h"
#include "Platform/PathUtilities.h"

namespace tarvik {

namespace {
using Layout = TVKDirectoryLayout;
constexpr double kScreenshotQuality = 0.7;
}  // namespace

std::shared_ptr<TVKIssueSubmission> TVKIssueSubmission::create() {
    std::shared_ptr<TVKIssueSubmission> issue(new TVKIssueSubmission());
    issue->createInitialSubmissionPaths();
    return issue;
}

std::shared_ptr<TVKIssueSubmission> TVKIssueSubmission::withUUID(const std::string& uuid) {
    return std::shared_ptr<TVKIssueSubmission>(new TVKIssueSubmission(uuid));
}

std::string TVKIssueSubmission::submissionTypeFolderPath() {
    return Layout::typeFolderPath(Layout::Kind::Issues);
}

std::string TVKIssueSubmission::processingFolderPath() {
    return Layout::statusFolderPath(Layout::Kind::Issues, Layout::Status::Processing);
}

std::string TVKIssueSubmission::queuedFolderPath() {
    return Layout::statusFolderPath(Layout::Kind::Issues, Layout::Status::Queued);
}

std::string TVKIssueSubmission::sentFolderPath() {
    return Layout::statusFolderPath(Layout::Kind::Issues, Layout::Status::Sent);
}

std::string TVKIssueSubmission::submissionTypeFolderPathOfKind() const {
    return submissionTypeFolderPath();
}

std::optional<std::string> TVKIssueSubmission::emailAddress() const {
    std::lock_guard lock(issueMutex_);
    return emailAddress_;
}

void TVKIssueSubmission::setEmailAddress(std::optional<std::string> email) {
    std::lock_guard lock(issueMutex_);
    emailAddress_ = std::move(email);
}

std::optional<std::string> TVKIssueSubmission::comments() const {
    std::lock_guard lock(issueMutex_);
    return comments_;
}

void TVKIssueSubmission::setComments(std::optional<std::string> comments) {
    std::lock_guard lock(issueMutex_);
    comments_ = std::move(comments);
}

bool TVKIssueSubmission::finishedCopyingFiles() const {
    std::lock_guard lock(issueMutex_);
    return finishedCopyingFiles_;
}

void TVKIssueSubmission::setFinishedCopyingFiles(bool finished) {
    std::lock_guard lock(issueMutex_);
    finishedCopyingFiles_ = finished;
}

std::string TVKIssueSubmission::screenshotFilePath() const {
    return appendingPathComponent(tarvikAttachmentsFolderPath(), "screenshot.jpg");
}

void TVKIssueSubmission::saveScreenshot(const Image& screenshot) {
    std::string path = screenshotFilePath();
    if (std::optional<Data> jpeg = screenshot.jpegRepresentation(kScreenshotQuality)) {
        writeBytesAtomically(
            std::string_view(reinterpret_cast<const char*>(jpeg->data()), jpeg->size()), path);
    }
    // Listed even when the write failed: the request then simply has no screenshot part.
    addAlreadyCopiedFile(path);
}

std::string TVKIssueSubmission::tarvikAPIUrl() const {
    return "https://" + TarvikDomainName + "/v1/issue/create.json";
}

}  // namespace tarvik
