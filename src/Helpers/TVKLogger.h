#pragma once

#include <tarvik/Value.h>

#include "Platform/ConsoleCapture.h"
#include "Platform/Utf8.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvik {

// The three plain-text logs that travel with every submission, in "temp_logs":
//   "user_tracking_logs.txt"  "<timestamp> <message>"
//   "system_logs.txt"         what the process wrote to standard output and standard error
//   "debug_logs.txt"          "<timestamp> <level> <file> <method> <line> <message>"
// Timestamps are "yyyy-MM-dd HH:mm:ss.SSSSSS" in local time. Each record opens, appends to and
// closes its file; every 500th append (over all three files) checks the size of the file it
// went to and cuts it back to its last 100000 bytes. Appends may come from any thread.
class TVKLogger {
  public:
    static constexpr std::uint64_t kMaxBytesPerLogFile = 100000;
    static constexpr std::uint64_t kAppendsBetweenSizeChecks = 500;
    // Console output is cut into records no longer than this, so that the appends between two
    // size checks add at most one limit's worth to the system log.
    static constexpr std::size_t kMaxBytesPerSystemRecord =
        kMaxBytesPerLogFile / kAppendsBetweenSizeChecks;

    static std::shared_ptr<TVKLogger> sharedInstance();
    static std::string tempLogsDirectory();
    static std::uint64_t maxBytesPerLogFile() { return kMaxBytesPerLogFile; }

    static void logMessage(const std::string& message);
    // Appends the text as records of at most kMaxBytesPerSystemRecord bytes each, cut between
    // characters.
    static void logSystemMessage(const std::string& message);
    static void logDebugMessage(const std::string& message, std::int64_t logLevel,
                                const std::string& filename, std::int32_t lineNumber,
                                const std::string& methodName);
    // Appends the text and a line feed.
    static void write(const std::string& text, const std::string& path);
    static void appendContent(const std::string& text, const std::string& path);

    static void trimLogFile(const std::string& path);
    static void trimLogs();
    // `size` bytes from `offset` (zero-filled past the end of the file); none when the file
    // cannot be opened.
    static std::optional<Data> dataWithContentsOfFile(const std::string& path, std::uint64_t offset,
                                                      std::uint64_t size);
    static void reset();
    static void clearLogs();

    // Captures standard error, then standard output, into the system log; each chunk is also
    // echoed unchanged to the real console.
    static void redirectConsoles();
    void redirectStandardError();
    void redirectStandardOut();

    // True on the thread that is writing captured console output, where a console line would
    // come straight back into the capture.
    static bool isDeliveringConsoleOutput();
    // Media time of the last standard-error chunk captured; 0 before the first.
    double lastStandardErrorActivity() const { return lastStandardErrorActivity_.load(); }

    TVKLogger();

    const std::string& userTrackingLogFilePath() const { return userTrackingLogFilePath_; }
    const std::string& systemLogFilePath() const { return systemLogFilePath_; }
    const std::string& debugLogFilePath() const { return debugLogFilePath_; }
    std::uint64_t trimLogsCount() const { return trimLogsCount_.load(); }

  private:
    // Appends the records that `text` holds one after the other, each ending at its offset in
    // `recordEnds`, as if one by one; those between two size checks go in one write.
    void append(std::string_view text, const std::vector<std::size_t>& recordEnds,
                const std::string& path);
    void trim(const std::string& path);
    std::mutex& mutexFor(const std::string& path);
    void handleConsoleChunk(ConsoleCapture::Stream stream, std::string_view bytes);
    // Advances the shared counter by up to `appends`, modulo 500, stopping where it comes round
    // to 0; returns how far it went and whether it came round.
    std::pair<std::size_t, bool> countAppends(std::size_t appends);

    std::string userTrackingLogFilePath_;
    std::string systemLogFilePath_;
    std::string debugLogFilePath_;
    std::atomic<std::uint64_t> trimLogsCount_{0};
    std::atomic<double> lastStandardErrorActivity_{0};
    // Appends and trims of one file are serialised, so a trim never swaps the file from under
    // a record being written.
    std::array<std::mutex, 4> fileMutexes_;  // the three logs, then any other file
    std::mutex decodersMutex_;
    std::array<Utf8ChunkDecoder, 2> decoders_;  // standard output, standard error
};

}  // namespace tarvik
