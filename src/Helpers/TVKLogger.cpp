#include "Helpers/TVKLogger.h"

#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKFileHelper.h"
#include "Platform/AtomicWrite.h"
#include "Platform/Runtime.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace tarvik {

namespace {

thread_local bool deliveringConsoleOutput = false;

// "yyyy-MM-dd HH:mm:ss.SSSSSS" in the local time zone.
std::string timestamp(Date date) {
    auto micros = std::chrono::duration_cast<std::chrono::microseconds>(date.time_since_epoch());
    auto seconds = std::chrono::floor<std::chrono::seconds>(micros);
    std::time_t t = static_cast<std::time_t>(seconds.count());
    std::tm local{};
    localtime_r(&t, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return fmt::format("{}.{:06d}", text, (micros - seconds).count());
}

std::string now() {
    return timestamp(Runtime::current().clock().now());
}

// How much of `text` the next piece of at most `maximum` bytes takes. A line feed is put after
// each piece, so it ends after a whole line when it can, otherwise between two UTF-8 characters
// (bytes that are not UTF-8 at all are cut anywhere).
std::size_t lengthOfNextPiece(std::string_view text, std::size_t maximum) {
    if (text.size() <= maximum) {
        return text.size();
    }
    if (std::size_t lineEnd = text.rfind('\n', maximum - 1); lineEnd != std::string_view::npos) {
        return lineEnd + 1;
    }
    std::size_t length = maximum;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
        --length;
    }
    return length > 0 ? length : maximum;
}

}  // namespace

TVKLogger::TVKLogger()
    : userTrackingLogFilePath_(tempLogsDirectory() + "/user_tracking_logs.txt"),
      systemLogFilePath_(tempLogsDirectory() + "/system_logs.txt"),
      debugLogFilePath_(tempLogsDirectory() + "/debug_logs.txt") {}

std::shared_ptr<TVKLogger> TVKLogger::sharedInstance() {
    return Runtime::current().sharedInstance<TVKLogger>();
}

std::string TVKLogger::tempLogsDirectory() {
    return TVKDirectoryLayout::tempLogsDirectory();
}

void TVKLogger::logMessage(const std::string& message) {
    auto logger = sharedInstance();
    write(fmt::format("{} {}", now(), message), logger->userTrackingLogFilePath_);
}

void TVKLogger::logSystemMessage(const std::string& message) {
    // Each record is a piece of the message and a line feed.
    std::string records;
    std::vector<std::size_t> recordEnds;
    std::string_view rest = message;
    do {
        std::size_t length = lengthOfNextPiece(rest, kMaxBytesPerSystemRecord);
        records.append(rest.substr(0, length)).push_back('\n');
        recordEnds.push_back(records.size());
        rest.remove_prefix(length);
    } while (!rest.empty());
    auto logger = sharedInstance();
    logger->append(records, recordEnds, logger->systemLogFilePath_);
}

void TVKLogger::logDebugMessage(const std::string& message, std::int64_t logLevel,
                                const std::string& filename, std::int32_t lineNumber,
                                const std::string& methodName) {
    auto logger = sharedInstance();
    write(fmt::format("{} {} {} {} {} {}", now(), logLevel, filename, methodName, lineNumber,
                      message),
          logger->debugLogFilePath_);
}

void TVKLogger::write(const std::string& text, const std::string& path) {
    appendContent(text + "\n", path);
}

void TVKLogger::appendContent(const std::string& text, const std::string& path) {
    sharedInstance()->append(text, {text.size()}, path);
}

std::mutex& TVKLogger::mutexFor(const std::string& path) {
    if (path == userTrackingLogFilePath_)
        return fileMutexes_[0];
    if (path == systemLogFilePath_)
        return fileMutexes_[1];
    if (path == debugLogFilePath_)
        return fileMutexes_[2];
    return fileMutexes_[3];
}

std::pair<std::size_t, bool> TVKLogger::countAppends(std::size_t appends) {
    std::uint64_t count = trimLogsCount_.load();
    std::uint64_t counted;
    do {
        counted = std::min<std::uint64_t>(appends, kAppendsBetweenSizeChecks - count);
    } while (!trimLogsCount_.compare_exchange_weak(count,
                                                   (count + counted) % kAppendsBetweenSizeChecks));
    return {counted, count + counted == kAppendsBetweenSizeChecks};
}

void TVKLogger::append(std::string_view text, const std::vector<std::size_t>& recordEnds,
                       const std::string& path) {
    std::lock_guard lock(mutexFor(path));
    std::size_t start = 0;
    for (std::size_t done = 0; done < recordEnds.size();) {
        auto [counted, checkSize] = countAppends(recordEnds.size() - done);
        done += counted;
        std::size_t end = recordEnds[done - 1];
        TVKFileHelper::appendString(std::string(text.substr(start, end - start)), path);
        start = end;
        if (checkSize && TVKFileHelper::sizeOfFileAtPath(path) > kMaxBytesPerLogFile) {
            trim(path);
        }
    }
}

void TVKLogger::trimLogFile(const std::string& path) {
    auto logger = sharedInstance();
    std::lock_guard lock(logger->mutexFor(path));
    logger->trim(path);
}

void TVKLogger::trim(const std::string& path) {
    std::uint64_t size = TVKFileHelper::sizeOfFileAtPath(path);
    if (size <= kMaxBytesPerLogFile) {
        return;
    }
    // Only the kept tail is read. The cut is by bytes: the tail may start mid-record.
    std::optional<Data> tail =
        dataWithContentsOfFile(path, size - kMaxBytesPerLogFile, kMaxBytesPerLogFile);
    if (!tail || tail->empty()) {
        return;
    }
    writeBytesAtomically(
        std::string_view(reinterpret_cast<const char*>(tail->data()), tail->size()), path);
}

void TVKLogger::trimLogs() {
    auto logger = sharedInstance();
    trimLogFile(logger->userTrackingLogFilePath_);
    trimLogFile(logger->systemLogFilePath_);
    trimLogFile(logger->debugLogFilePath_);
}

std::optional<Data> TVKLogger::dataWithContentsOfFile(const std::string& path, std::uint64_t offset,
                                                      std::uint64_t size) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) {
        return std::nullopt;
    }
    Data data(size, 0);
    if (std::fseek(file, static_cast<long>(offset), SEEK_SET) == 0) {
        [[maybe_unused]] size_t read = std::fread(data.data(), 1, size, file);
    }
    std::fclose(file);
    return data;
}

void TVKLogger::reset() {
    clearLogs();
}

void TVKLogger::clearLogs() {
    auto logger = sharedInstance();
    for (const std::string* path : {&logger->userTrackingLogFilePath_, &logger->systemLogFilePath_,
                                    &logger->debugLogFilePath_}) {
        std::lock_guard lock(logger->mutexFor(*path));
        TVKFileHelper::clearFileAtPath(*path);
    }
}

void TVKLogger::redirectConsoles() {
    auto logger = sharedInstance();
    logger->redirectStandardError();
    logger->redirectStandardOut();
}

void TVKLogger::redirectStandardError() {
    Runtime::current().platform().consoleCapture().capture(
        ConsoleCapture::Stream::StandardError,
        [this](ConsoleCapture::Stream stream, std::string_view bytes) {
            handleConsoleChunk(stream, bytes);
        });
}

void TVKLogger::redirectStandardOut() {
    Runtime::current().platform().consoleCapture().capture(
        ConsoleCapture::Stream::StandardOutput,
        [this](ConsoleCapture::Stream stream, std::string_view bytes) {
            handleConsoleChunk(stream, bytes);
        });
}

bool TVKLogger::isDeliveringConsoleOutput() {
    return deliveringConsoleOutput;
}

void TVKLogger::handleConsoleChunk(ConsoleCapture::Stream stream, std::string_view bytes) {
    deliveringConsoleOutput = true;
    std::string text;
    {
        std::lock_guard lock(decodersMutex_);
        text = decoders_[stream == ConsoleCapture::Stream::StandardOutput ? 0 : 1].decode(bytes);
    }
    // A chunk that is only the first bytes of a character waits for the rest.
    if (!text.empty()) {
        logSystemMessage(text);
    }
    Runtime::current().platform().consoleCapture().writeToOriginal(stream, bytes);
    if (stream == ConsoleCapture::Stream::StandardError) {
        lastStandardErrorActivity_.store(Runtime::current().clock().mediaTime());
    }
    deliveringConsoleOutput = false;
}

}  // namespace tarvik
