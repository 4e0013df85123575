// A host application for tests of what is process-wide (console capture, the uncaught-exception
// handler): it starts the SDK and then plays the scenario named by its first argument.

#include <tarvik/Host.h>
#include <tarvik/Tarvik.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

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
    // Large writes, bigger than a pipe's atomic size, and text without a final newline.
    writeAll(STDOUT_FILENO, std::string(300000, 'z'));
    writeAll(STDERR_FILENO, std::string(200000, 'Q'));
    std::printf("stdio text without newline");
    std::fprintf(stderr, "STDIO ERROR TEXT");
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
