#pragma once

#include "Platform/ConsoleCapture.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace tarvik {

// Replaces descriptors 1 and 2 with pipes. A reader thread per pipe moves bytes from the pipe
// into memory, so the host does not wait while the SDK is busy on disk; one delivery thread
// hands the chunks to their handlers in arrival order. At most kMaxBytesInMemory wait in
// memory: past that the readers leave the pipes to fill, and the host's writes wait as they
// would on a console that does not keep up.
class PipeConsoleCapture : public ConsoleCapture {
  public:
    static constexpr std::size_t kMaxBytesInMemory = 4 << 20;

    PipeConsoleCapture();
    // Puts the original descriptors back and stops the threads (only a runtime that ends
    // before the process does needs this).
    ~PipeConsoleCapture() override;

    // Puts the original descriptors back, delivers what was captured and stops the threads.
    void stop();

    void capture(Stream stream, ChunkHandler handler) override;
    // Waits for the console to take the bytes, in pieces small enough that a write to a pipe
    // never blocks, so that flushBeforeExit can stop the wait.
    void writeToOriginal(Stream stream, std::string_view bytes) override;
    void flush() override;
    void flushBeforeExit(double consoleGrace, double limit) override;

  private:
    using SteadyTime = std::chrono::steady_clock::time_point;
    struct Redirection {
        std::atomic<int> originalFd{-1};  // the stream as it was, kept for the echo
        std::atomic<int> readFd{-1};      // read end of the pipe now behind the stream
        std::thread reader;
        // Taken around each read and its count, so that a flush sees what is still in the pipe
        // and what was read from it at one and the same moment.
        std::mutex readMutex;
        std::atomic<std::uint64_t> bytesRead{0};
        std::atomic<std::uint64_t> bytesDelivered{0};
        std::atomic<bool> echoGivenUp{false};  // the console did not take it in time
    };
    struct Chunk {
        Stream stream;
        std::string bytes;
    };

    static int descriptorOf(Stream stream);
    static size_t indexOf(Stream stream) { return stream == Stream::StandardOutput ? 0 : 1; }
    void readLoop(Stream stream, int readFd);
    void deliverLoop();
    void waitForDelivery(std::optional<SteadyTime> deadline);
    // False when the console's time ran out before it took every byte.
    bool writeToConsole(int fd, std::string_view bytes);

    int stopFd_;  // an eventfd that wakes the readers when the capture ends
    // Until flushBeforeExit, writes to the console wait for it as long as it takes; then they
    // wait until this moment (in steady-clock ticks), and the eventfd wakes those waiting.
    std::atomic<SteadyTime::rep> consoleDeadline_;
    int consoleDeadlineFd_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::condition_variable spaceFreed_;
    std::deque<Chunk> chunks_;
    std::size_t bytesInMemory_ = 0;  // in chunks_ or being delivered
    bool stopping_ = false;
    std::array<ChunkHandler, 2> handlers_;
    std::array<Redirection, 2> redirections_;
    std::thread deliverer_;
};

}  // namespace tarvik
