// A one-shot driver for bench/compare_gather.sh, run on the Linux platform in the folders the
// environment names (XDG_CACHE_HOME, XDG_CONFIG_HOME, ...):
//   GatherDriver prepare SOURCE
//       writes the files a gathering takes: SOURCE/logs/ (the three logs, full),
//       SOURCE/attachments/ (ten host files), the host's defaults domain, and
//       SOURCE/user_defaults.json exactly as the SDK writes it, for the plain copy
//   GatherDriver start
//       only starts the SDK, to tell the start's share of a gathering process apart
//   GatherDriver gather STAGED_LOGS ATTACHMENTS
//       starts the SDK, puts the logs of STAGED_LOGS in place, gathers one event submission
//       with every file of ATTACHMENTS attached and prints its folder
#include "SubmissionFiles.h"

#include <tarvik/Host.h>
#include <tarvik/Tarvik.h>

#include "Helpers/NSUserDefaults+Tarvik.h"
#include "Helpers/TVKFileHelper.h"
#include "Helpers/TVKLogger.h"
#include "Models/TVKEventSubmission.h"
#include "Platform/Runtime.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr const char* kBundleIdentifier = "com.tarvikhq.gatherdriver";

int prepare(const std::string& source) {
    fs::create_directories(source + "/logs");
    fs::create_directories(source + "/attachments");
    tarvik::bench::writeFullLogs(source + "/logs");
    tarvik::bench::writeAttachments(source + "/attachments");
    tarvik::Runtime::current().platform().userDefaults().setPersistentDomain(
        tarvik::bench::hostDefaultsDomain(), kBundleIdentifier);
    tarvik::TVKFileHelper::writeDictionary(tarvik::tarvik_userDefaults(),
                                           source + "/user_defaults.json");
    return 0;
}

void start() {
    tarvik::Tarvik::startWithAPIKey("bench-key", tarvik::TarvikProcessTypeManual, false);
}

int gather(const std::string& stagedLogs, const std::string& attachments) {
    start();
    // Starting empties the logs; a host's logs fill up while it runs, so the full ones are
    // moved in afterwards (a rename, nearly free).
    for (const std::string& name : tarvik::bench::logFileNames()) {
        fs::rename(stagedLogs + "/" + name, tarvik::TVKLogger::tempLogsDirectory() + "/" + name);
    }

    auto event = tarvik::TVKEventSubmission::create();
    event->setIncludeEventAttachments(true);
    for (const auto& entry : fs::directory_iterator(attachments)) {
        event->attachFileFromUrl(entry.path().string());
    }
    // The completion hands its news to the main thread, which wakes the main loop at once.
    auto done = std::make_shared<bool>(false);
    event->copyAllFilesWithCompletionHandler(
        [done](auto) { tarvik::Runtime::current().mainQueue().async([done] { *done = true; }); });
    tarvik::runMainLoop(30, [&done] { return *done; });
    if (!*done) {
        std::fprintf(stderr, "the gathering did not complete\n");
        return 1;
    }
    std::printf("%s\n", event->submissionFolderPath()->c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    tarvik::setMainBundleInfo(
        {{"CFBundleIdentifier", kBundleIdentifier}, {"CFBundleExecutable", "GatherDriver"}});
    if (argc == 3 && std::strcmp(argv[1], "prepare") == 0) {
        return prepare(argv[2]);
    }
    if (argc == 2 && std::strcmp(argv[1], "start") == 0) {
        start();
        return 0;
    }
    if (argc == 4 && std::strcmp(argv[1], "gather") == 0) {
        return gather(argv[2], argv[3]);
    }
    std::fprintf(stderr, "usage: %s prepare SOURCE | start | gather STAGED_LOGS ATTACHMENTS\n",
                 argv[0]);
    return 2;
}
