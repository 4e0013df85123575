#include "Command.h"
#include "Submissions.h"

#include <tarvik/Pinning.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKFileHelper.h"
#include "Helpers/TVKRetryManager.h"
#include "Helpers/TVKSubmissionOperation.h"

#include <cstdio>
#include <filesystem>

namespace tarvik::tool {

namespace {

struct SendOptions {
    std::string uuid;
    std::optional<std::string> host;
    std::vector<std::string> pins;
    std::optional<std::string> caBundle;
};

std::optional<SendOptions> parse(const Arguments& arguments) {
    SendOptions options;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        bool hasValue = i + 1 < arguments.size();
        if (argument == "--host" && hasValue) {
            options.host = arguments[++i];
        } else if (argument == "--pin" && hasValue) {
            options.pins.push_back(arguments[++i]);
        } else if (argument == "--ca-bundle" && hasValue) {
            options.caBundle = arguments[++i];
        } else if (options.uuid.empty() && !argument.starts_with("--")) {
            options.uuid = argument;
        } else {
            return std::nullopt;
        }
    }
    if (options.uuid.empty()) {
        return std::nullopt;
    }
    return options;
}

// "host:port" → "host".
std::string hostNameOf(const std::string& host) {
    return host.substr(0, host.rfind(':') == std::string::npos ? host.size() : host.rfind(':'));
}

}  // namespace

int sendCommand(const Arguments& arguments) {
    std::optional<SendOptions> options = parse(arguments);
    if (!options) {
        std::fprintf(stderr,
                     "usage: tarvik send UUID [--host HOST[:PORT]] [--pin BASE64]... "
                     "[--ca-bundle FILE]\n");
        return 2;
    }
    if (options->host) {
        TarvikDomainName = *options->host;
    }
    if (!options->pins.empty() && !setPinnedDomain(hostNameOf(TarvikDomainName), options->pins)) {
        std::fprintf(stderr, "tarvik: a pin is not the base64 text of a SHA-256 digest\n");
        return 2;
    }
    if (options->caBundle) {
        setTrustedCertificateAuthorities(*options->caBundle);
    }
    std::shared_ptr<TVKSubmission> submission = findSubmission(options->uuid);
    if (!submission) {
        std::fprintf(stderr, "tarvik: no submission %s\n", options->uuid.c_str());
        return 1;
    }
    Tarvik::sharedInstance().setApiKey(savedApiKey(*submission));
    // A failed answer sets the retry time through the retry manager, as in the app.
    TVKRetryManager::beginRetryingSubmissions();

    std::optional<HttpResult> result = TVKSubmissionOperation(submission).send();
    bool kept = std::filesystem::exists(*submission->submissionFolderPath());
    if (!result) {
        std::printf("muted: events with this message are not wanted; removed without sending\n");
        return 0;
    }
    if (!result->response) {
        std::printf("no response (%s): kept in the queue\n", result->error.value_or("").c_str());
        return 1;
    }
    std::printf("HTTP %ld: ", result->response->statusCode);
    if (!kept) {
        std::printf("answered for good; removed from the queue\n");
        return 0;
    }
    std::printf("kept in the queue; next try after %s\n",
                TVKFileHelper::stringWithContentsOfFileAtPath(submission->retryDateFilePath())
                    .value_or("")
                    .c_str());
    return 1;
}

}  // namespace tarvik::tool
