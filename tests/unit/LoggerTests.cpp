#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/Files.h"

#include <gmock/gmock.h>
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

TEST_F(LoggerRecords, EachLogHasItsOwnFormat) {
    test.advance(0.25);
    TVKLogger::logMessage("opened settings");
    TVKLogger::logDebugMessage("card declined", 2, "CheckoutView", 118, "pay");
    TVKLogger::logDebugMessage("", -1, "File", 0, "method");
    TVKLogger::logSystemMessage("raw text");
    EXPECT_EQ(readFile(logger->userTrackingLogFilePath()),
              "2026-01-02 03:04:05.250000 opened settings\n");
    EXPECT_EQ(readFile(logger->debugLogFilePath()),
              "2026-01-02 03:04:05.250000 2 CheckoutView pay 118 card declined\n"
              "2026-01-02 03:04:05.250000 -1 File method 0 \n");
    EXPECT_EQ(readFile(logger->systemLogFilePath()), "raw text\n");
    EXPECT_EQ(fs::path(logger->systemLogFilePath()).filename(), "system_logs.txt");
    EXPECT_EQ(fs::path(logger->userTrackingLogFilePath()).filename(), "user_tracking_logs.txt");
    EXPECT_EQ(fs::path(logger->debugLogFilePath()).filename(), "debug_logs.txt");
}

TEST_F(LoggerRecords, TimestampsFollowTheLocalTimeZone) {
    setenv("TZ", "Asia/Kolkata", 1);  // UTC+05:30, no daylight saving
    tzset();
    TVKLogger::logMessage("x");
    EXPECT_EQ(readFile(logger->userTrackingLogFilePath()), "2026-01-02 08:34:05.000000 x\n");
}

TEST_F(LoggerRecords, FacadeKeepsOnlyTheFileNameAndTheMacroFillsThePosition) {
    Tarvik& tarvik = Tarvik::sharedInstance();
    tarvik.logMessage("m", 3, "a/b/Sample.src", "run", 12);
    tarvik.logWithLevel(4, "/x/Other.cpp", "go", -7, "{} of {}", 1, "two");
    int line = __LINE__ + 1;
    TARVIK_LOG(5, "from the macro");
    EXPECT_THAT(lines(readFile(logger->debugLogFilePath())),
                ::testing::ElementsAre("2026-01-02 03:04:05.000000 3 Sample.src run 12 m",
                                       "2026-01-02 03:04:05.000000 4 Other.cpp go -7 1 of two",
                                       "2026-01-02 03:04:05.000000 5 LoggerTests.cpp TestBody " +
                                           std::to_string(line) + " from the macro"));
}

using LoggerSizeCheck = LoggerTest;

TEST_F(LoggerSizeCheck, OnlyTheFiveHundredthAppendChecksAndOnlyItsOwnFile) {
    std::string big(150000, 'u');
    writeFile(logger->userTrackingLogFilePath(), big);
    writeFile(logger->systemLogFilePath(), big);
    for (int i = 0; i < 499; ++i) {
        TVKLogger::logDebugMessage("d", 0, "f", 1, "m");
    }
    EXPECT_EQ(logger->trimLogsCount(), 499u);
    EXPECT_EQ(fs::file_size(logger->userTrackingLogFilePath()), 150000u);
    TVKLogger::logSystemMessage("the 500th");
    EXPECT_EQ(logger->trimLogsCount(), 0u);
    EXPECT_EQ(fs::file_size(logger->systemLogFilePath()), 100000u);
    EXPECT_TRUE(readFile(logger->systemLogFilePath()).ends_with("the 500th\n"));
    // The other big file was not looked at.
    EXPECT_EQ(fs::file_size(logger->userTrackingLogFilePath()), 150000u);
}

TEST_F(LoggerSizeCheck, TrimKeepsExactlyTheLastHundredThousandBytes) {
    std::string path = logger->debugLogFilePath();
    std::string exact(100000, 'a');
    writeFile(path, exact);
    TVKLogger::trimLogFile(path);
    EXPECT_EQ(readFile(path), exact);

    std::string oneMore = "X" + std::string(99999, 'b') + "Z";
    writeFile(path, oneMore);
    TVKLogger::trimLogFile(path);
    EXPECT_EQ(readFile(path), oneMore.substr(1));

    // The cut is by bytes and may fall inside a character; nothing realigns it.
    std::string accented = "\xC3\xA9" + std::string(99999, 'c');
    writeFile(path, accented);
    TVKLogger::trimLogFile(path);
    EXPECT_EQ(readFile(path), accented.substr(2 - 1));
}

TEST_F(LoggerSizeCheck, TrimmingAndClearingNeverCreateFiles) {
    TVKLogger::trimLogs();
    TVKLogger::clearLogs();
    EXPECT_TRUE(fs::is_empty(TVKLogger::tempLogsDirectory()));

    writeFile(logger->systemLogFilePath(), "old output");
    TVKLogger::reset();
    EXPECT_EQ(fs::file_size(logger->systemLogFilePath()), 0u);
    EXPECT_FALSE(fs::exists(logger->debugLogFilePath()));
}

TEST_F(LoggerSizeCheck, SliceIsZeroFilledPastTheEndAndMissingFilesGiveNothing) {
    writeFile(logger->debugLogFilePath(), "abcdef");
    EXPECT_EQ(TVKLogger::dataWithContentsOfFile(logger->debugLogFilePath(), 2, 3),
              (Data{'c', 'd', 'e'}));
    EXPECT_EQ(TVKLogger::dataWithContentsOfFile(logger->debugLogFilePath(), 4, 4),
              (Data{'e', 'f', 0, 0}));
    EXPECT_FALSE(TVKLogger::dataWithContentsOfFile(logger->userTrackingLogFilePath(), 0, 1));
}

using LoggerConsole = LoggerTest;

TEST_F(LoggerConsole, EveryChunkIsOneRecordAndIsEchoedUnchanged) {
    TVKLogger::redirectConsoles();
    auto& capture = test.platform().scriptedConsoleCapture();
    ASSERT_TRUE(capture.isCapturing(Stream::StandardOutput));
    ASSERT_TRUE(capture.isCapturing(Stream::StandardError));
    capture.emit(Stream::StandardOutput, "no newline");
    capture.emit(Stream::StandardError, "line\n");
    capture.emit(Stream::StandardOutput, "tail");
    EXPECT_EQ(readFile(logger->systemLogFilePath()), "no newline\nline\n\ntail\n");
    EXPECT_EQ(capture.writtenToOriginal(Stream::StandardOutput), "no newlinetail");
    EXPECT_EQ(capture.writtenToOriginal(Stream::StandardError), "line\n");
}

TEST_F(LoggerConsole, KeepsUtf8WholeAcrossChunksAndReplacesOnlyBadBytes) {
    TVKLogger::redirectConsoles();
    auto& capture = test.platform().scriptedConsoleCapture();
    capture.emit(Stream::StandardOutput, "caf\xC3");  // é split over two chunks
    capture.emit(Stream::StandardOutput, "\xA9 \xF0\x9F\x98\x80 ok");
    capture.emit(Stream::StandardError, "bad \xFF byte");
    capture.emit(Stream::StandardError, "\xE2\x82");  // only the start of a character...
    capture.emit(Stream::StandardError, "x");         // ...that never comes
    EXPECT_EQ(readFile(logger->systemLogFilePath()),
              "caf\n\xC3\xA9 \xF0\x9F\x98\x80 ok\nbad \xEF\xBF\xBD byte\n"
              "\xEF\xBF\xBD\xEF\xBF\xBDx\n");
    // The real console gets the bytes exactly as written.
    EXPECT_EQ(capture.writtenToOriginal(Stream::StandardOutput), "caf\xC3\xA9 \xF0\x9F\x98\x80 ok");
    EXPECT_EQ(capture.writtenToOriginal(Stream::StandardError), "bad \xFF byte\xE2\x82x");
}

TEST_F(LoggerConsole, StandardErrorChunksMarkTheirTime) {
    TVKLogger::redirectConsoles();
    auto& capture = test.platform().scriptedConsoleCapture();
    EXPECT_EQ(logger->lastStandardErrorActivity(), 0);
    test.advance(3);
    capture.emit(Stream::StandardOutput, "out");
    EXPECT_EQ(logger->lastStandardErrorActivity(), 0);
    capture.emit(Stream::StandardError, "err");
    EXPECT_DOUBLE_EQ(logger->lastStandardErrorActivity(), 1003.0);
}

using LoggerConcurrency = LoggerTest;

// Appends from many threads: no record is torn or lost and the shared counter loses no
// increment.
void writeFromThreads(int threads, int recordsEach) {
    std::vector<std::thread> writers;
    for (int t = 0; t < threads; ++t) {
        writers.emplace_back([t, recordsEach] {
            for (int i = 0; i < recordsEach; ++i) {
                TVKLogger::logDebugMessage("record " + std::to_string(i), t, "Writer.cpp", i,
                                           "thread" + std::to_string(t));
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
}

const std::regex kDebugRecord(
    R"(2026-01-02 03:04:05\.000000 (\d) Writer\.cpp thread(\d) (\d+) record (\d+))");

TEST_F(LoggerConcurrency, EightThreadsBelowTheTrimSizeLeaveEveryRecordWhole) {
    writeFromThreads(8, 200);
    std::vector<std::string> records = lines(readFile(logger->debugLogFilePath()));
    ASSERT_EQ(records.size(), 1600u);
    std::set<std::pair<int, int>> seen;
    for (const std::string& record : records) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(record, match, kDebugRecord)) << record;
        EXPECT_EQ(match[1], match[2]);
        EXPECT_EQ(match[3], match[4]);
        seen.insert({std::stoi(match[1]), std::stoi(match[3])});
    }
    EXPECT_EQ(seen.size(), 1600u);
    EXPECT_EQ(logger->trimLogsCount(), 1600u % 500);
}

TEST_F(LoggerConcurrency, EightThreadsOfTenThousandRecordsKeepAWellFormedTail) {
    writeFromThreads(8, 10000);
    std::vector<std::string> records = lines(readFile(logger->debugLogFilePath()));
    ASSERT_GT(records.size(), 1000u);
    // The cut falls anywhere in the first kept record; every later one is whole.
    for (size_t i = 1; i < records.size(); ++i) {
        ASSERT_TRUE(std::regex_match(records[i], kDebugRecord)) << records[i];
    }
    EXPECT_EQ(logger->trimLogsCount(), 0u);  // 80000 appends, a multiple of 500
    EXPECT_LE(fs::file_size(logger->debugLogFilePath()), 100000u + 500u * 64u);
}

using LoggerStart = LoggerTest;

TEST_F(LoggerStart, StartCapturesTheConsoleEmptiesTheLogsAndLogsTheBanner) {
    writeFile(logger->systemLogFilePath(), "from an earlier run\n");
    writeFile(logger->debugLogFilePath(), "old\n");
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, true);
    auto& capture = test.platform().scriptedConsoleCapture();
    EXPECT_TRUE(capture.isCapturing(Stream::StandardOutput));
    EXPECT_TRUE(capture.isCapturing(Stream::StandardError));
    EXPECT_EQ(readFile(logger->systemLogFilePath()), "");
    EXPECT_EQ(readFile(logger->debugLogFilePath()), "");
    EXPECT_EQ(readFile(logger->userTrackingLogFilePath()),
              "2026-01-02 03:04:05.000000 Starting Tarvik - version 1.0.0\n");
}

}  // namespace
}  // namespace tarvik
