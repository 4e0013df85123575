// A host application for the integration tests. It plays the scenario named by its first
// argument: what is process-wide (console capture, the uncaught-exception handler), one request
// through the HTTPS transport with the SDK's own trust handling, or events delivered to a
// collector (DeliveryScenario.h).

#include "DeliveryScenario.h"

#include <tarvik/Host.h>
#include <tarvik/Pinning.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKTrustManager.h"
#include "Platform/TVKHttpTransport.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
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

// Lines "000000000\n", "000000001\n", ... from `first` on: the reader can tell whether each byte
// arrived, once and in order.
std::string numberedLines(long first, long count) {
    std::string text;
    for (long i = first; i < first + count; ++i) {
        char line[24];  // room for any long, so the compiler sees no truncation
        std::snprintf(line, sizeof line, "%09ld\n", i);
        text += line;
    }
    return text;
}

// `count` numbered lines to standard output, a MiB at a time, calling `afterEachWrite` after
// each.
void writeNumberedLines(long count, void (*afterEachWrite)() = nullptr) {
    constexpr long kLinesPerWrite = 104857;
    for (long first = 0; first < count; first += kLinesPerWrite) {
        writeAll(STDOUT_FILENO, numberedLines(first, std::min(kLinesPerWrite, count - first)));
        if (afterEachWrite) {
            afterEachWrite();
        }
    }
}

// fetch URL CA_BUNDLE TIMEOUT: one GET through the platform's HTTPS transport and the SDK's
// trust manager, trusting the CAs in CA_BUNDLE and giving up after TIMEOUT seconds without
// progress. Prints the status, or "no response: " and the reason.
int fetch(const std::vector<std::string>& arguments) {
    if (arguments.size() != 3) {
        std::fprintf(stderr, "usage: tarvik_test_host fetch URL CA_BUNDLE TIMEOUT\n");
        return 2;
    }
    tarvik::setTrustedCertificateAuthorities(arguments[1]);
    tarvik::HttpRequest request;
    request.url = arguments[0];
    request.timeoutInterval = std::atof(arguments[2].c_str());
    tarvik::HttpResult result = tarvik::makePlatformHttpTransport()->perform(
        request, tarvik::TVKTrustManager::sessionDelegate());
    if (result.response) {
        std::printf("%ld\n", result.response->statusCode);
    } else {
        std::printf("no response: %s\n", result.error.value_or("").c_str());
    }
    return 0;
}

// Where the moments go: the standard output the host was started with (the SDK captures file
// descriptor 1, and a captured line may not reach the console before the process ends or is
// killed), or the file named by TARVIK_TEST_HOST_MOMENTS when that console is not read.
int realStdout = -1;

void announce(const char* what) {
    char line[64];
    int length = std::snprintf(line, sizeof line, "%s AT %.6f\n", what, monotonicSeconds());
    writeAll(realStdout, std::string(line, static_cast<std::size_t>(length)));
}

// The crash handler ends by calling abort() on its own thread, so this runs synchronously
// there: the moment of the abort, measured inside the process, apart from how long the system
// then takes to end it.
void announceAbort(int) {
    announce("ABORTED");
}

}  // namespace

// External linkage, so that the stack frames can name it.
[[noreturn]] __attribute__((noinline)) void throwingFunction(const std::string& reason) {
    throw std::runtime_error(reason);
}

int main(int argc, char** argv) {
    std::string scenario = argc > 1 ? argv[1] : "";
    std::vector<std::string> arguments(argv + std::min(argc, 2), argv + argc);
    if (scenario == "fetch") {
        // Before the SDK starts, so that no request of its own runs beside this one.
        return fetch(arguments);
    }
    const char* momentsFile = std::getenv("TARVIK_TEST_HOST_MOMENTS");
    realStdout = momentsFile ? ::open(momentsFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)
                             : ::dup(STDOUT_FILENO);
    if (scenario == "record-events") {
        // This configures the service and starts the SDK itself.
        return runDeliveryScenario(
            arguments, [](const std::string& line) { writeAll(realStdout, line + "\n"); });
    }
    std::signal(SIGABRT, announceAbort);
    tarvik::setMainBundleInfo({{"CFBundleIdentifier", "com.tarvikhq.testhost"},
                               {"CFBundleExecutable", "tarvik_test_host"}});
    tarvik::Tarvik::startWithAPIKey("test-key", tarvik::TarvikProcessTypeManual, false);

    if (scenario == "burst") {
        burst(argc > 2 ? std::atoi(argv[2]) : 2000);
        return 0;
    }
    if (scenario == "crash") {
        // Output right before the exception must still reach the system log.
        for (int i = 0; i < 200; ++i) {
            std::fprintf(stderr, "LAST WORDS %d\n", i);
        }
        announce("THROWING");
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
        announce("THROWING");
        throwingFunction("boom while talking");
    }
    if (scenario == "crash-after-output") {
        // LINES numbered lines on standard output, all of them still in the SDK's hands when
        // the exception comes if the console does not keep up.
        writeNumberedLines(std::atol(argv[2]));
        announce("THROWING");
        throwingFunction("boom after the output");
    }
    if (scenario == "crash-while-writing") {
        // Standard output never stops; standard error stays quiet.
        std::thread([] {
            std::string lines = numberedLines(0, 104857);
            for (;;) {
                writeAll(STDOUT_FILENO, lines);
            }
        }).detach();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        announce("THROWING");
        throwingFunction("boom while writing");
    }
    if (scenario == "flood") {
        // LINES numbered lines on standard output, after the peak memory used so far. Each
        // MiB written is announced: a host whose writes wait stops announcing.
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmHWM:", 0) == 0) {
                writeAll(realStdout, "BASELINE " + line + "\n");
            }
        }
        writeNumberedLines(std::atol(argv[2]), [] { announce("WROTE"); });
        return 0;
    }
    if (scenario == "crash-on-thread") {
        std::thread([] {
            announce("THROWING");
            throwingFunction("boom on a worker thread");
        }).join();
    }
    std::fprintf(stderr, "unknown scenario '%s'\n", scenario.c_str());
    return 2;
}
