// A driver for bench/compare_body.sh, run on the Linux platform in the folders the environment
// names (HOME, XDG_CACHE_HOME, XDG_CONFIG_HOME, ...):
//   BodyBuildDriver log PATH BYTES
//       writes BYTES of log-like text to PATH (the script's inputs; never measured)
//   BodyBuildDriver build SOURCE RUNS
//       starts the SDK and gathers one issue submission from SOURCE: SOURCE/logs/ holds the
//       three logs, SOURCE/screenshot.jpg the screenshot and SOURCE/attachments/ the host's
//       files. Then builds the request body RUNS times from an empty "httpBody.txt", timing
//       only buildPOSTSubmissionRequest(), and, apart from it, the two pieces of work the body
//       is made of: zipping the logs and appending the finished parts. Prints the folder, the
//       body's size and the times, one "name value" per line.
//
// A `build` process never holds a file's content in memory itself (files are put in place with
// copy_file), so its peak resident size is that of the SDK and the libraries it loads.
#include "GeneratedLog.h"
#include "SubmissionFiles.h"

#include <tarvik/Host.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKFileHelper.h"
#include "Helpers/TVKLogger.h"
#include "Helpers/TVKSubmissionRequestBuilder.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/Image.h"
#include "Platform/Runtime.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <time.h>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kBundleIdentifier = "com.tarvikhq.bodybuilddriver";

int writeLog(const std::string& path, size_t bytes) {
    tarvik::bench::writeBytes(path, tarvik::bench::generatedLogText(bytes));
    return fs::file_size(path) == bytes ? 0 : 1;
}

void copyOver(const fs::path& source, const fs::path& target) {
    fs::copy_file(source, target, fs::copy_options::overwrite_existing);
}

// A started SDK with one issue gathered from `source`, the logs and the screenshot being the
// ones of `source` in full.
std::shared_ptr<tarvik::TVKIssueSubmission> gatheredIssue(const fs::path& source) {
    tarvik::Tarvik& sdk =
        tarvik::Tarvik::startWithAPIKey("bench-key", tarvik::TarvikProcessTypeManual, false);
    // The host's defaults would add a small zipped part the standard-tools side has no match
    // for.
    sdk.setCollectUserDefaults(false);
    for (const std::string& name : tarvik::bench::logFileNames()) {
        copyOver(source / "logs" / name, fs::path(tarvik::TVKLogger::tempLogsDirectory()) / name);
    }

    auto issue = tarvik::TVKIssueSubmission::create();
    // The screenshot goes through saveScreenshot so that the SDK lists it as its own file; its
    // content is then replaced by the prepared 1 MB JPEG below, which spares this process the
    // decoded pixels of a large image.
    issue->saveScreenshot(
        *tarvik::Image::filled(8, 8, 1.0, {0.2, 0.4, 0.6, 1.0}, tarvik::Image::Opaque));
    for (const auto& entry : fs::directory_iterator(source / "attachments")) {
        issue->attachFileFromUrl(entry.path().string());
    }
    bool done = false;
    issue->copyAllFilesWithCompletionHandler(
        [&done](auto) { tarvik::Runtime::current().mainQueue().async([&done] { done = true; }); });
    tarvik::runMainLoop(30, [&done] { return done; });
    if (!done) {
        return nullptr;
    }
    // Gathering keeps only a log's last 100000 bytes, as the logger would have; larger logs are
    // put in whole afterwards, since the size of the SDK's files is what a run varies.
    fs::path sdkFiles = issue->tarvikAttachmentsFolderPath();
    for (const std::string& name : tarvik::bench::logFileNames()) {
        copyOver(source / "logs" / name, sdkFiles / name);
    }
    copyOver(source / "screenshot.jpg", issue->screenshotFilePath());
    return issue;
}

// The median wall time of the runs and their mean CPU time (user and system, every thread of
// the process: the load of the machine stretches the first more than the second).
struct Timing {
    double wallMs;
    double cpuMs;
};

double processCpuMilliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

Timing timeRuns(int runs, const std::function<void()>& prepare, const std::function<void()>& work) {
    std::vector<double> wallTimes;
    double cpuTotal = 0;
    for (int run = 0; run < runs; ++run) {
        prepare();
        double cpuStart = processCpuMilliseconds();
        auto start = Clock::now();
        work();
        wallTimes.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        cpuTotal += processCpuMilliseconds() - cpuStart;
    }
    std::sort(wallTimes.begin(), wallTimes.end());
    return {wallTimes[wallTimes.size() / 2], cpuTotal / runs};
}

int build(const fs::path& source, int runs) {
    std::shared_ptr<tarvik::TVKIssueSubmission> issue = gatheredIssue(source);
    if (!issue) {
        std::fprintf(stderr, "the gathering did not complete\n");
        return 1;
    }
    const std::string body = issue->httpBodyFilePath();
    auto emptyBody = [&body] { fs::resize_file(body, 0); };

    Timing buildTime = timeRuns(runs, emptyBody, [&issue] {
        tarvik::TVKSubmissionRequestBuilder(issue).buildPOSTSubmissionRequest();
    });
    const std::uintmax_t bodyBytes = fs::file_size(body);

    // The same two kinds of work on their own, through the helpers the builder calls.
    const fs::path archive = fs::path(issue->tarvikAttachmentsFolderPath()) / "bench.zip";
    Timing zipTime = timeRuns(
        runs, [] {},
        [&issue, &archive] {
            for (const std::string& name : tarvik::bench::logFileNames()) {
                tarvik::TVKFileHelper::zipFileAtPath(
                    issue->tarvikAttachmentsFolderPath() + "/" + name, archive.string());
            }
        });
    fs::remove(archive);
    std::vector<std::string> plainParts;
    for (const std::string& url : issue->attachedFilesUrls()) {
        if (url.size() < 4 || url.compare(url.size() - 4, 4, ".txt") != 0) {
            plainParts.push_back(url);
        }
    }
    Timing appendTime = timeRuns(runs, emptyBody, [&plainParts, &body] {
        for (const std::string& part : plainParts) {
            tarvik::TVKFileHelper::appendFileAtPath(part, body);
        }
    });
    // The last thing done leaves the real body in place for the script to check.
    emptyBody();
    tarvik::TVKSubmissionRequestBuilder(issue).buildPOSTSubmissionRequest();

    std::printf("folder %s\n", issue->submissionFolderPath()->c_str());
    std::printf("body_bytes %ju\n", bodyBytes);
    std::printf("build_ms %.3f\nbuild_cpu_ms %.3f\n", buildTime.wallMs, buildTime.cpuMs);
    std::printf("zip_logs_ms %.3f\nzip_logs_cpu_ms %.3f\n", zipTime.wallMs, zipTime.cpuMs);
    std::printf("append_plain_parts_ms %.3f\nappend_plain_parts_cpu_ms %.3f\n", appendTime.wallMs,
                appendTime.cpuMs);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    tarvik::setMainBundleInfo(
        {{"CFBundleIdentifier", kBundleIdentifier}, {"CFBundleExecutable", "BodyBuildDriver"}});
    if (argc == 4 && std::strcmp(argv[1], "log") == 0) {
        return writeLog(argv[2], std::stoul(argv[3]));
    }
    if (argc == 4 && std::strcmp(argv[1], "build") == 0) {
        return build(argv[2], std::max(1, std::stoi(argv[3])));
    }
    std::fprintf(stderr, "usage: %s log PATH BYTES | build SOURCE RUNS\n", argv[0]);
    return 2;
}
