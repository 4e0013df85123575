#pragma once

#include <functional>
#include <string_view>

namespace tarvik {

// Captures what the process writes to its standard output and standard error.
class ConsoleCapture {
  public:
    enum class Stream { StandardOutput, StandardError };
    // Called with every chunk captured, one at a time, in arrival order across both streams.
    using ChunkHandler = std::function<void(Stream stream, std::string_view bytes)>;

    virtual ~ConsoleCapture() = default;

    // Routes the stream into the capture; from then on `handler` receives what is written to
    // it. Capturing a stream a second time keeps the first capture and only swaps the handler.
    virtual void capture(Stream stream, ChunkHandler handler) = 0;
    // Writes bytes to the stream as it was before it was captured (the real console).
    virtual void writeToOriginal(Stream stream, std::string_view bytes) = 0;
    // Blocks until every chunk written before this call has reached its handler.
    virtual void flush() = 0;
    // The flush of a process about to end, which a console that reads slowly or not at all
    // must not keep alive: writes to the real console wait at most `consoleGrace` more seconds
    // for it, then a stream it does not take at once is echoed no further (its chunks still
    // reach their handlers); and the wait for the handlers ends after `limit` seconds.
    virtual void flushBeforeExit(double consoleGrace, double limit) = 0;
};

}  // namespace tarvik
