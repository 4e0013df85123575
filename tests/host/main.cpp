// A host application for tests of what is process-wide (console capture, the uncaught-exception
// handler) and of what the SDK leaves on disk (queued submissions): it starts the SDK and then
// plays the scenario named by its first argument.

#include <tarvik/Host.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Models/TVKEventSubmission.h"
#include "Platform/Runtime.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void writeAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            std::abort();
        }
        done += static_cast<size_t>(n);
    }
}

// Lines of lower-case text on standard output and upper-case text on standard error, so that a
// reader can tell the streams apart in the shared system log.
void burst(int lines) {
    for (int i = 0; i < lines; ++i) {
        writeAll(STDOUT_FILENO, "out line " + std::string(i % 50, 'x') + " end\n");
        writeAll(STDERR_FILENO, "ERR LINE " + std::string(i % 70, 'Y') + " END\n");
    }
    // Writes far bigger than a pipe's atomic size, and text without a final newline.
    writeAll(STDOUT_FILENO, std::string(30000, 'z'));
    writeAll(STDERR_FILENO, std::string(20000, 'Q'));
    std::printf("stdio text without newline");
    std::fprintf(stderr, "STDIO ERROR TEXT");
}

// `count` events recorded and queued as the SDK does it, with the session's user properties and
// the host's custom properties saved beside each; prints each identifier on a line.
int queueEvents(int count) {
    tarvik::Tarvik& sdk = tarvik::Tarvik::sharedInstance();
    sdk.setString("gold", "plan");
    sdk.setIntValue(3, "cart_items");
    sdk.setUserIdentifier("user-42");
    // Something in each of the three logs, as a session that ran a while has: a tracked
    // interaction, a debug record and console output (delivered before the logs are copied).
    tarvik::TVKLogger::logMessage("tapped checkout");
    TARVIK_LOG(1, "queueing {} events", count);
    std::fprintf(stderr, "host: queueing %d events\n", count);
    std::fflush(stderr);
    tarvik::Runtime::current().platform().consoleCapture().flush();

    std::vector<std::shared_ptr<tarvik::TVKEventSubmission>> events;
    // Counted on the main thread; shared, since a gathering that is late outlives this call.
    auto gathered = std::make_shared<int>(0);
    for (int i = 0; i < count; ++i) {
        auto event = tarvik::TVKEventSubmission::create();
        event->saveEventSubmissionData({{"message", fmt::format("event {}", i)},
                                        {"index", i},
                                        {"checkout", tarvik::Dictionary{{"step", "payment"}}}});
        event->saveMetadata(sdk.metadata());
        event->saveUserProperties(sdk.createTarvikProperties());
        event->copyAllFilesWithCompletionHandler([gathered](auto) {
            tarvik::Runtime::current().mainQueue().async([gathered] { ++*gathered; });
        });
        events.push_back(event);
    }
    tarvik::runMainLoop(30, [&] { return *gathered == count; });
    if (*gathered != count) {
        std::fprintf(stderr, "only %d of %d submissions gathered their files\n", *gathered, count);
        return 1;
    }
    for (const auto& event : events) {
        event->setSubmissionStatus(tarvik::TVKSubmissionStatusQueued);
        std::printf("%s\n", event->uuid().c_str());
    }
    return 0;
}

void announceThrow() {
    std::printf("THROWING AT %.6f\n", monotonicSeconds());
    std::fflush(stdout);
}

}  // namespace

// External linkage, so that the stack frames can name it.
[[noreturn]] __attribute__((noinline)) void throwingFunction(const std::string& reason) {
    throw std::runtime_error(reason);
}

int main(int argc, char** argv) {
    std::string scenario = argc > 1 ? argv[1] : "";
    tarvik::setMainBundleInfo({{"CFBundleIdentifier", "com.tarvikhq.testhost"},
                               {"CFBundleExecutable", "tarvik_test_host"}});
    tarvik::Tarvik::startWithAPIKey("test-key", tarvik::TarvikProcessTypeManual, false);

    if (scenario == "burst") {
        burst(argc > 2 ? std::atoi(argv[2]) : 2000);
        return 0;
    }
    if (scenario == "queue-events") {
        return queueEvents(argc > 2 ? std::atoi(argv[2]) : 1);
    }
    if (scenario == "unicode") {
        writeAll(STDOUT_FILENO, "caf\xC3\xA9 \xF0\x9F\x98\x80 na\xC3\xAFve\n");
        writeAll(STDERR_FILENO, "bad \xFF byte\n");
        return 0;
    }
    if (scenario == "crash") {
        // Output right before the exception must still reach the system log.
        for (int i = 0; i < 200; ++i) {
            std::fprintf(stderr, "LAST WORDS %d\n", i);
        }
        announceThrow();
        throwingFunction("boom from the test host");
    }
    if (scenario == "crash-steady-output") {
        // Standard error keeps talking every 0.8 s, three times: the handler waits it out.
        std::thread talker([] {
            for (int i = 0; i < 3; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(800));
                std::fprintf(stderr, "STILL TALKING %d AT %.6f\n", i, monotonicSeconds());
            }
        });
        talker.detach();
        announceThrow();
        throwingFunction("boom while talking");
    }
    if (scenario == "crash-on-thread") {
        std::thread worker([] {
            announceThrow();
            throwingFunction("boom on a worker thread");
        });
        worker.join();
    }
    std::fprintf(stderr, "unknown scenario '%s'\n", scenario.c_str());
    return 2;
}
