#include "Command.h"
#include "Submissions.h"

#include <tarvik/Tarvik.h>

#include "Helpers/TVKSubmissionRequestBuilder.h"

#include <cstdio>
#include <filesystem>

namespace tarvik::tool {

int bodyCommand(const Arguments& arguments) {
    std::optional<std::string> dumpPath;
    std::vector<std::string> rest;
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--dump" && i + 1 < arguments.size()) {
            dumpPath = arguments[++i];
        } else {
            rest.push_back(arguments[i]);
        }
    }
    if (rest.size() != 1) {
        std::fprintf(stderr, "usage: tarvik body UUID [--dump FILE]\n");
        return 2;
    }
    std::shared_ptr<TVKSubmission> submission = findSubmission(rest[0]);
    if (!submission) {
        std::fprintf(stderr, "tarvik: no submission %s\n", rest[0].c_str());
        return 1;
    }
    Tarvik::sharedInstance().setApiKey(savedApiKey(*submission));
    HttpRequest request = TVKSubmissionRequestBuilder(submission).buildPOSTSubmissionRequest();

    std::printf("%s %s\n", request.method.c_str(), request.url.c_str());
    for (const auto& [name, value] : request.headers) {
        std::printf("%s: %s\n", name.c_str(), value.c_str());
    }
    std::uintmax_t size = std::filesystem::file_size(*request.bodyFilePath);
    std::printf("\nbody: %ju bytes in %s\n", size, request.bodyFilePath->c_str());
    if (dumpPath) {
        std::error_code error;
        std::filesystem::copy_file(*request.bodyFilePath, *dumpPath,
                                   std::filesystem::copy_options::overwrite_existing, error);
        if (error) {
            std::fprintf(stderr, "tarvik: cannot write %s: %s\n", dumpPath->c_str(),
                         error.message().c_str());
            return 1;
        }
    }
    return 0;
}

}  // namespace tarvik::tool
