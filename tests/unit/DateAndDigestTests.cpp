#include "Helpers/NSDate+Tarvik.h"
#include "Helpers/NSString+Tarvik.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace tarvik {
namespace {

using testing::TestRuntime;

TEST(DateRepresentation, IsGmtWithANumericOffsetAndDropsFractionsTowardsThePast) {
    TestRuntime test;
    setenv("TZ", "Pacific/Kiritimati", 1);  // 14 hours ahead of GMT: the zone is ignored
    tzset();
    const std::pair<double, std::string> cases[] = {
        {0, "1970-01-01T00:00:00+0000"},
        {951825600, "2000-02-29T12:00:00+0000"},  // a leap day
        {1609459199, "2020-12-31T23:59:59+0000"},
        {1577836800.999, "2020-01-01T00:00:00+0000"},
        {-0.5, "1969-12-31T23:59:59+0000"},
        {-2208988800, "1900-01-01T00:00:00+0000"},
    };
    for (const auto& [seconds, text] : cases) {
        EXPECT_EQ(tarvik_ios8601Representation(Date(std::chrono::duration_cast<Date::duration>(
                      std::chrono::duration<double>(seconds)))),
                  text);
    }
}

TEST(MD5Digest, UpperCaseHexOfTheTextUpToTheFirstNul) {
    TestRuntime test;
    EXPECT_EQ(tarvik_MD5Digest(""), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_EQ(tarvik_MD5Digest("The quick brown fox jumps over the lazy dog"),
              "9E107D9D372BB6826BD81D3542A419D6");
    EXPECT_EQ(tarvik_MD5Digest(std::string("The quick brown fox jumps over the lazy dog\0.", 45)),
              "9E107D9D372BB6826BD81D3542A419D6");
    EXPECT_EQ(tarvik_MD5Digest(std::string("\0tail", 5)), "D41D8CD98F00B204E9800998ECF8427E");
}

}  // namespace
}  // namespace tarvik
