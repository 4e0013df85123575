#include "Helpers/NSDate+Tarvik.h"
#include "Helpers/NSString+Tarvik.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <sstream>
#include <vector>

namespace tarvik {
namespace {

using testing::TestRuntime;
using testsupport::runPython;

Date dateAt(double secondsSince1970) {
    return Date(std::chrono::duration_cast<Date::duration>(
        std::chrono::duration<double>(secondsSince1970)));
}

TEST(DateRepresentation, IsGmtWithANumericOffset) {
    TestRuntime test;
    EXPECT_EQ(tarvik_ios8601Representation(dateAt(1577836800)), "2020-01-01T00:00:00+0000");
    EXPECT_EQ(tarvik_ios8601Representation(dateAt(0)), "1970-01-01T00:00:00+0000");
    // A leap day, and the last second of a year.
    EXPECT_EQ(tarvik_ios8601Representation(dateAt(951825600)), "2000-02-29T12:00:00+0000");
    EXPECT_EQ(tarvik_ios8601Representation(dateAt(1609459199)), "2020-12-31T23:59:59+0000");
}

TEST(DateRepresentation, DropsFractionsOfASecondTowardsThePast) {
    TestRuntime test;
    EXPECT_EQ(tarvik_ios8601Representation(dateAt(1577836800.999)), "2020-01-01T00:00:00+0000");
    EXPECT_EQ(tarvik_ios8601Representation(dateAt(-0.5)), "1969-12-31T23:59:59+0000");
}

TEST(DateRepresentation, IgnoresTheLocalTimeZone) {
    TestRuntime test;
    setenv("TZ", "Pacific/Kiritimati", 1);  // 14 hours ahead of GMT
    tzset();
    EXPECT_EQ(tarvik_ios8601Representation(dateAt(1577836800)), "2020-01-01T00:00:00+0000");
}

TEST(DateRepresentation, AgreesWithPythonOverManyDates) {
    TestRuntime test;
    std::mt19937_64 random(20200101);
    std::uniform_int_distribution<std::int64_t> seconds(-2208988800, 4102444799);  // 1900..2099
    std::ostringstream arguments;
    std::string expected;
    for (int i = 0; i < 200; ++i) {
        std::int64_t t = seconds(random);
        arguments << t << ' ';
        expected += tarvik_ios8601Representation(Date(std::chrono::seconds(t))) + "\n";
    }
    auto python = runPython(R"(import sys, datetime
for t in sys.argv[1:]:
    d = datetime.datetime(1970, 1, 1, tzinfo=datetime.timezone.utc) + datetime.timedelta(seconds=int(t))
    print(d.strftime('%Y-%m-%dT%H:%M:%S%z'))
)",
                            arguments.str());
    ASSERT_EQ(python.exitCode, 0) << python.output;
    EXPECT_EQ(python.output, expected);
}

TEST(MD5Digest, KnownDigestsInUpperCaseHex) {
    TestRuntime test;
    EXPECT_EQ(tarvik_MD5Digest(""), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_EQ(tarvik_MD5Digest("a"), "0CC175B9C0F1B6A831C399E269772661");
    EXPECT_EQ(tarvik_MD5Digest("The quick brown fox jumps over the lazy dog"),
              "9E107D9D372BB6826BD81D3542A419D6");
}

TEST(MD5Digest, StopsAtTheFirstNulByte) {
    TestRuntime test;
    std::string withNul("checkout failed\0 on retry", 25);
    EXPECT_EQ(tarvik_MD5Digest(withNul), tarvik_MD5Digest("checkout failed"));
    EXPECT_EQ(tarvik_MD5Digest(std::string("\0tail", 5)), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST(MD5Digest, AgreesWithPythonsHashlib) {
    TestRuntime test;
    // Non-ASCII text, long text, and bytes around every MD5 block boundary.
    std::vector<std::string> texts = {"Grüße aus Tallinn", "日本語のイベント", "emoji 🎉🚀",
                                      std::string(1000, 'x')};
    for (size_t length : {55u, 56u, 63u, 64u, 65u, 119u, 120u, 128u}) {
        texts.push_back(std::string(length, 'q'));
    }
    std::string hexArguments;
    std::string expected;
    for (const std::string& text : texts) {
        for (unsigned char byte : text) {
            static const char* digits = "0123456789abcdef";
            hexArguments += digits[byte >> 4];
            hexArguments += digits[byte & 0x0F];
        }
        hexArguments += ' ';
        expected += tarvik_MD5Digest(text) + "\n";
    }
    auto python = runPython(R"(import sys, hashlib
for text in sys.argv[1:]:
    print(hashlib.md5(bytes.fromhex(text)).hexdigest().upper())
)",
                            hexArguments);
    ASSERT_EQ(python.exitCode, 0) << python.output;
    EXPECT_EQ(python.output, expected);
}

}  // namespace
}  // namespace tarvik
