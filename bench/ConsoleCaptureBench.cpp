// How fast a host can write to standard output while the SDK captures it, against the same
// writes to a file with no capture. Run with standard output sent to /dev/null.
//   ConsoleCaptureBench capture MEGABYTES     (start the SDK, then write to standard output)
//   ConsoleCaptureBench file MEGABYTES PATH   (write to a file, no SDK)
// Prints the megabytes per second on standard error: the time runs until everything written
// has reached the system log, or the file.

#include <tarvik/Tarvik.h>

#include "Platform/Runtime.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

void writeAll(int fd, const std::string& bytes) {
    for (size_t done = 0; done < bytes.size();) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            std::abort();
        }
        done += static_cast<size_t>(n);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s capture|file MEGABYTES [PATH]\n", argv[0]);
        return 2;
    }
    std::string mode = argv[1];
    long megabytes = std::atol(argv[2]);
    std::string line(127, 'x');
    line += '\n';
    std::string block;
    while (block.size() < 64 * 1024) {
        block += line;
    }
    long blocks = megabytes * 1024 * 1024 / static_cast<long>(block.size());

    int fd = STDOUT_FILENO;
    if (mode == "capture") {
        tarvik::Tarvik::startWithAPIKey("bench", tarvik::TarvikProcessTypeManual, false);
    } else if (mode == "file" && argc > 3) {
        fd = ::open(argv[3], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    } else {
        return 2;
    }
    auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < blocks; ++i) {
        writeAll(fd, block);
    }
    if (mode == "capture") {
        tarvik::Runtime::current().platform().consoleCapture().flush();
    } else {
        ::fsync(fd);
        ::close(fd);
    }
    double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    double written = static_cast<double>(blocks) * static_cast<double>(block.size()) / 1e6;
    // Standard error is captured too in capture mode; its original still reaches the terminal.
    std::fprintf(stderr, "%s: %.1f MB in %.3f s = %.1f MB/s\n", mode.c_str(), written, seconds,
                 written / seconds);
    return 0;
}
