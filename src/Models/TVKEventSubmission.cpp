#include "Models/TVKEventSubmission.h"

#include <tarvik/TarvikConstants.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Platform/PathUtilities.h"
#include "Platform/PropertyList.h"
#include "Public/DebugConsole.h"

namespace tarvik {

namespace {
using Layout = TVKDirectoryLayout;
}  // namespace

std::shared_ptr<TVKEventSubmission> TVKEventSubmission::create() {
    std::shared_ptr<TVKEventSubmission> event(new TVKEventSubmission());
    event->createInitialSubmissionPaths();
    return event;
}

std::shared_ptr<TVKEventSubmission> TVKEventSubmission::withUUID(const std::string& uuid) {
    return std::shared_ptr<TVKEventSubmission>(new TVKEventSubmission(uuid));
}

std::string TVKEventSubmission::submissionTypeFolderPath() {
    return Layout::typeFolderPath(Layout::Kind::Events);
}

std::string TVKEventSubmission::processingFolderPath() {
    return Layout::statusFolderPath(Layout::Kind::Events, Layout::Status::Processing);
}

std::string TVKEventSubmission::queuedFolderPath() {
    return Layout::statusFolderPath(Layout::Kind::Events, Layout::Status::Queued);
}

std::string TVKEventSubmission::sentFolderPath() {
    return Layout::statusFolderPath(Layout::Kind::Events, Layout::Status::Sent);
}

std::string TVKEventSubmission::submissionTypeFolderPathOfKind() const {
    return submissionTypeFolderPath();
}

std::string TVKEventSubmission::eventDataFilePath() const {
    return appendingPathComponent(submissionFolderPath().value_or(""), "event_data.plist");
}

std::string TVKEventSubmission::stackFilePath() const {
    return appendingPathComponent(tarvikAttachmentsFolderPath(), "stack_trace.json");
}

void TVKEventSubmission::saveEventSubmissionData(const Dictionary& data) {
    if (!plist::writeFileAtomically(Value(data), eventDataFilePath())) {
        // The failure carries no error object of its own: the line names none.
        logToConsoleIfDebug("ERROR - failed to save event submission data: (null)");
    }
}

std::optional<std::string> TVKEventSubmission::message() const {
    std::optional<Value> data = plist::readFile(eventDataFilePath());
    const Value* message = data ? data->find("message") : nullptr;
    if (!message || !message->isString()) {
        return std::nullopt;
    }
    return *message->asString();
}

std::string TVKEventSubmission::tarvikAPIUrl() const {
    return "https://" + TarvikDomainName + "/v1/event/save.json";
}

bool isEventSubmission(const TVKSubmission& submission) {
    return submission.tarvikAPIUrl().find("/event/save.json") != std::string::npos;
}

}  // namespace tarvik
