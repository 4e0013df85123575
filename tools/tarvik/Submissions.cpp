#include "Submissions.h"

#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/PropertyList.h"

#include <filesystem>
#include <vector>

namespace tarvik::tool {

namespace fs = std::filesystem;

// A loaded submission starts as Queued; recording another status moves nothing outside debug
// mode, which the tool never turns on.
std::shared_ptr<TVKSubmission> findSubmission(const std::string& uuid) {
    std::vector<std::shared_ptr<TVKSubmission>> candidates = {TVKEventSubmission::withUUID(uuid),
                                                              TVKIssueSubmission::withUUID(uuid)};
    for (const auto& candidate : candidates) {
        for (TVKSubmissionStatus status :
             {TVKSubmissionStatusQueued, TVKSubmissionStatusProcessing, TVKSubmissionStatusSent}) {
            if (fs::is_directory(*candidate->submissionFolderPathForStatus(status))) {
                candidate->setSubmissionStatus(status);
                return candidate;
            }
        }
    }
    return nullptr;
}

std::optional<std::string> savedApiKey(const TVKSubmission& submission) {
    std::optional<Value> properties = plist::readFile(submission.tarvikPropertiesFilePath());
    const Value* key = properties ? properties->find("apiKey") : nullptr;
    return key && key->isString() ? std::optional<std::string>(*key->asString()) : std::nullopt;
}

}  // namespace tarvik::tool
