#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <thread>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using Stream = ConsoleCapture::Stream;
using testing::TestRuntime;
using testsupport::readFile;
using testsupport::writeFile;

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        result.push_back(line);
    }
    return result;
}

// Every test runs with the logs folder in place and the clock at 2026-01-02 03:04:05 UTC.
class LoggerTest : public ::testing::Test {
  protected:
    LoggerTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        fs::create_directories(TVKLogger::tempLogsDirectory());
        logger = TVKLogger::sharedInstance();
    }
    TestRuntime test;
    std::shared_ptr<TVKLogger> logger;
};

using LoggerRecords = LoggerTest;

TEST_F(LoggerRecords, EachLogHasItsOwnFileAndFormatInLocalTime) {
    test.advance(0.25);
    TVKLogger::logMessage("opened settings");
    TVKLogger::logDebugMessage("", -1, "File", 0, "method");
    TVKLogger::logSystemMessage("raw text");
    // The facade keeps only the file's name; the macro fills in the position.
    Tarvik& tarvik = Tarvik::sharedInstance();
    tarvik.logMessage("card declined", 2, "a/b/CheckoutView.src", "pay", 118);
    tarvik.logWithLevel(4, "/x/Other.cpp", "go", -7, "{} of {}", 1, "two");
    int line = __LINE__ + 1;
    TARVIK_LOG(5, "from the macro");
    setenv("TZ", "Asia/Kolkata", 1);  // UTC+05:30, no daylight saving
    tzset();
    TVKLogger::logMessage("x");
    EXPECT_EQ(readFile(TVKLogger::tempLogsDirectory() + "/user_tracking_logs.txt"),
              "2026-01-02 03:04:05.250000 opened settings\n"
              "2026-01-02 08:34:05.250000 x\n");
    EXPECT_EQ(readFile(TVKLogger::tempLogsDirectory() + "/debug_logs.txt"),
              "2026-01-02 03:04:05.250000 -1 File method 0 \n"
              "2026-01-02 03:04:05.250000 2 CheckoutView.src pay 118 card declined\n"
              "2026-01-02 03:04:05.250000 4 Other.cpp go -7 1 of two\n"
              "2026-01-02 03:04:05.250000 5 LoggerTests.cpp TestBody " +
                  std::to_string(line) + " from the macro\n");
    EXPECT_EQ(readFile(TVKLogger::tempLogsDirectory() + "/system_logs.txt"), "raw text\n");
}

using LoggerTrimming = LoggerTest;

TEST_F(LoggerTrimming, EveryFiveHundredthAppendKeepsTheLastHundredThousandBytesOfItsFile) {
    std::string big(150000, 'u');
    writeFile(logger->userTrackingLogFilePath(), big);
    // One byte over the limit once the 500th record, "the 500th\n", is appended to it.
    writeFile(logger->systemLogFilePath(), "X" + std::string(99990, 's'));
    for (int i = 0; i < 499; ++i) {
        TVKLogger::logDebugMessage("d", 0, "f", 1, "m");
    }
    EXPECT_EQ(logger->trimLogsCount(), 499u);
    TVKLogger::logSystemMessage("the 500th");
    EXPECT_EQ(logger->trimLogsCount(), 0u);
    // The cut is by bytes, wherever a record or a character starts.
    EXPECT_EQ(readFile(logger->systemLogFilePath()), std::string(99990, 's') + "the 500th\n");
    // The other big file was not looked at.
    EXPECT_EQ(fs::file_size(logger->userTrackingLogFilePath()), 150000u);

    std::string exact(100000, 'a');
    writeFile(logger->debugLogFilePath(), exact);
    TVKLogger::trimLogFile(logger->debugLogFilePath());
    EXPECT_EQ(readFile(logger->debugLogFilePath()), exact);
}

using LoggerConsole = LoggerTest;

TEST_F(LoggerConsole, StartEmptiesTheLogsThenEveryChunkIsOneRecordWithWholeUtf8) {
    writeFile(logger->systemLogFilePath(), "from an earlier run\n");
    writeFile(logger->debugLogFilePath(), "old\n");
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, true);
    EXPECT_EQ(readFile(logger->debugLogFilePath()), "");
    EXPECT_EQ(readFile(logger->userTrackingLogFilePath()),
              "2026-01-02 03:04:05.000000 Starting Tarvik - version 1.0.0\n");

    auto& capture = test.platform().scriptedConsoleCapture();
    test.advance(3);
    capture.emit(Stream::StandardOutput, "caf\xC3");  // é split over two chunks
    capture.emit(Stream::StandardOutput, "\xA9 \xF0\x9F\x98\x80 ok");
    EXPECT_EQ(logger->lastStandardErrorActivity(), 0);
    capture.emit(Stream::StandardError, "bad \xFF byte\n");
    capture.emit(Stream::StandardError, "\xE2\x82");  // only the start of a character...
    capture.emit(Stream::StandardError, "x");         // ...that never comes
    EXPECT_DOUBLE_EQ(logger->lastStandardErrorActivity(), 1003.0);
    EXPECT_EQ(readFile(logger->systemLogFilePath()),
              "caf\n\xC3\xA9 \xF0\x9F\x98\x80 ok\nbad \xEF\xBF\xBD byte\n\n"
              "\xEF\xBF\xBD\xEF\xBF\xBDx\n");
    // The real console gets the bytes exactly as written.
    EXPECT_EQ(capture.writtenToOriginal(Stream::StandardOutput), "caf\xC3\xA9 \xF0\x9F\x98\x80 ok");
    EXPECT_EQ(capture.writtenToOriginal(Stream::StandardError), "bad \xFF byte\n\xE2\x82x");
}

TEST_F(LoggerConsole, BigChunksBecomeRecordsSmallEnoughToKeepTheLogNearItsLimit) {
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, false);
    auto& capture = test.platform().scriptedConsoleCapture();
    // A record ends after a whole line when it can, otherwise between two characters.
    std::string text = "a line\n";
    for (int i = 0; i < 150; ++i) {
        text += "\xC3\xA9";  // é, two bytes
    }
    capture.emit(Stream::StandardOutput, text);
    EXPECT_EQ(readFile(logger->systemLogFilePath()),
              "a line\n\n" + text.substr(7, 200) + "\n" + text.substr(207) + "\n");

    // Chunks as big as the capture reads: between two size checks, 500 records, the log grows
    // by at most its limit.
    std::string written = text;
    std::uintmax_t largest = 0;
    for (int i = 0; i < 20; ++i) {
        std::string chunk(64 * 1024, static_cast<char>('a' + i));
        capture.emit(i % 2 ? Stream::StandardOutput : Stream::StandardError, chunk);
        written += chunk;
        largest = std::max(largest, fs::file_size(logger->systemLogFilePath()));
    }
    EXPECT_LE(largest, 2 * TVKLogger::kMaxBytesPerLogFile + 500);
    // Only line feeds were added, none lost: what is kept is the end of what was written.
    std::string kept = readFile(logger->systemLogFilePath());
    std::erase(kept, '\n');
    EXPECT_GT(kept.size(), TVKLogger::kMaxBytesPerLogFile / 2);
    EXPECT_TRUE(written.ends_with(kept));
}

using LoggerConcurrency = LoggerTest;

const std::regex kDebugRecord(
    R"(2026-01-02 03:04:05\.000000 (\d) Writer\.cpp thread\1 (\d+) record \2)");

TEST_F(LoggerConcurrency, EightThreadsOfTenThousandRecordsKeepAWellFormedTail) {
    // Appends from many threads, trimming as they go.
    std::vector<std::thread> writers;
    for (int t = 0; t < 8; ++t) {
        writers.emplace_back([t] {
            for (int i = 0; i < 10000; ++i) {
                TVKLogger::logDebugMessage("record " + std::to_string(i), t, "Writer.cpp", i,
                                           "thread" + std::to_string(t));
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
    std::vector<std::string> records = lines(readFile(logger->debugLogFilePath()));
    ASSERT_GT(records.size(), 1000u);
    // The cut falls anywhere in the first kept record; every later one is whole.
    for (size_t i = 1; i < records.size(); ++i) {
        ASSERT_TRUE(std::regex_match(records[i], kDebugRecord)) << records[i];
    }
    // The shared counter lost no increment: 80000 appends, a multiple of 500.
    EXPECT_EQ(logger->trimLogsCount(), 0u);
    EXPECT_LE(fs::file_size(logger->debugLogFilePath()), 100000u + 500u * 64u);
}

}  // namespace
}  // namespace tarvik
