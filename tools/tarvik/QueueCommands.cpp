#include "Command.h"
#include "DisplayJson.h"
#include "Submissions.h"

#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/PropertyList.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace tarvik::tool {

namespace fs = std::filesystem;

namespace {

std::string kindName(const TVKSubmission& submission) {
    return submission.isEventSubmissionKind() ? "event" : "issue";
}

std::string statusName(const TVKSubmission& submission) {
    return TVKSubmission::submissionStatusFolderNameForStatus(submission.submissionStatus())
        .value_or("?");
}

// Every file below the folder, relative to it and sorted, with its size.
std::vector<std::pair<std::string, std::uintmax_t>> filesIn(const std::string& folder) {
    std::vector<std::pair<std::string, std::uintmax_t>> files;
    std::error_code error;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        if (it->is_regular_file(error)) {
            files.emplace_back(fs::relative(it->path(), folder, error).string(),
                               it->file_size(error));
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

nlohmann::json propertyListOrNull(const std::string& path) {
    std::optional<Value> value = plist::readFile(path);
    return value ? displayJson(*value) : nlohmann::json(nullptr);
}

}  // namespace

int queueCommand(const Arguments& arguments) {
    if (!arguments.empty()) {
        std::fprintf(stderr, "usage: tarvik queue\n");
        return 2;
    }
    auto pending = TVKSubmission::processCacheFolderForSubmissions();
    std::printf("%zu pending submission%s\n", pending.size(), pending.size() == 1 ? "" : "s");
    for (const auto& submission : pending) {
        std::printf("%s %s %s %s\n", kindName(*submission).c_str(), submission->uuid().c_str(),
                    statusName(*submission).c_str(),
                    utcDateText(submission->createdDate()).c_str());
        for (const auto& [name, size] : filesIn(*submission->submissionFolderPath())) {
            std::printf("    %-40s %ju bytes\n", name.c_str(), size);
        }
    }
    return 0;
}

int showCommand(const Arguments& arguments) {
    if (arguments.size() != 1) {
        std::fprintf(stderr, "usage: tarvik show UUID\n");
        return 2;
    }
    std::shared_ptr<TVKSubmission> submission = findSubmission(arguments[0]);
    if (!submission) {
        std::fprintf(stderr, "tarvik: no submission %s\n", arguments[0].c_str());
        return 1;
    }
    nlohmann::json shown = {
        {"kind", kindName(*submission)},
        {"uuid", submission->uuid()},
        {"status", statusName(*submission)},
        {"folder", *submission->submissionFolderPath()},
        {"properties", propertyListOrNull(submission->tarvikPropertiesFilePath())},
        {"metadata", propertyListOrNull(submission->metadataFilePath())},
        {"elapsed_times", propertyListOrNull(submission->userElapsedTimesFilePath())},
        {"event_data", nullptr},
    };
    if (auto* event = dynamic_cast<TVKEventSubmission*>(submission.get())) {
        shown["event_data"] = propertyListOrNull(event->eventDataFilePath());
    }
    std::printf("%s\n", shown.dump(2).c_str());
    return 0;
}

}  // namespace tarvik::tool
