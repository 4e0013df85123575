#pragma once

#include "Platform/ConsoleCapture.h"

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace tarvik {

// Replaces descriptors 1 and 2 with pipes. A reader thread per pipe does nothing but move
// bytes from the pipe into memory, so the host never blocks on a full pipe while the SDK is
// busy on disk; one delivery thread hands the chunks to their handlers in arrival order.
class PipeConsoleCapture : public ConsoleCapture {
  public:
    PipeConsoleCapture();
    // Puts the original descriptors back and stops the threads (only a runtime that ends
    // before the process does needs this).
    ~PipeConsoleCapture() override;

    // Puts the original descriptors back, delivers what was captured and stops the threads.
    void stop();

    void capture(Stream stream, ChunkHandler handler) override;
    void writeToOriginal(Stream stream, std::string_view bytes) override;
    void flush() override;

  private:
    struct Redirection {
        int originalFd = -1;  // the stream as it was, kept for the echo
        int readFd = -1;      // read end of the pipe now behind the stream
        std::thread reader;
    };
    struct Chunk {
        Stream stream;
        std::string bytes;
    };

    static int descriptorOf(Stream stream);
    static size_t indexOf(Stream stream) { return stream == Stream::StandardOutput ? 0 : 1; }
    void readLoop(Stream stream, int readFd);
    void deliverLoop();
    bool pipesAreEmpty() const;

    int stopFd_;  // an eventfd that wakes the readers when the capture ends
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Chunk> chunks_;
    std::uint64_t received_ = 0;
    std::uint64_t delivered_ = 0;
    bool stopping_ = false;
    std::array<ChunkHandler, 2> handlers_;
    std::array<Redirection, 2> redirections_;
    std::thread deliverer_;
};

}  // namespace tarvik
