#include "Helpers/TVKKeyedArchiveDecoder.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/PythonPropertyLists.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::TestRuntime;
using testsupport::pythonPropertyLists;

Date referenceDatePlus(double seconds) {
    return Date(std::chrono::seconds(978307200)) +
           std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
}

TEST(KeyedArchiveDecoder, DecodesEveryKindOfValue) {
    TestRuntime test;
    const std::pair<std::string, Value> cases[] = {
        {"archive(['$null', {'NS.string': 'changeable', '$class': UID(2)},"
         " cls('NSMutableString', 'NSString')])",
         "changeable"},
        {"archive(['$null', -7])", -7},
        {"archive(['$null', {'NS.time': 86400.5, '$class': UID(2)}, cls('NSDate')])",
         referenceDatePlus(86400.5)},
        {"archive(['$null', b'\\x01\\x02\\xff'])", Data{0x01, 0x02, 0xff}},
        // A set reads as an array; an object shown twice is not a cycle.
        {"archive(['$null', {'NS.objects': [UID(2), UID(2)], '$class': UID(3)}, 'twice',"
         " cls('NSSet')])",
         Array{"twice", "twice"}},
        // Keys that are not strings become their description.
        {"archive(['$null', {'NS.keys': [UID(2), UID(3)], 'NS.objects': [UID(4), UID(5)],"
         " '$class': UID(8)}, 5, 'list', 'five', {'NS.objects': [UID(6), UID(7)],"
         " '$class': UID(9)}, 1, 2.5, cls('NSMutableDictionary', 'NSDictionary'),"
         " cls('NSMutableArray', 'NSArray')])",
         Dictionary{{"5", "five"}, {"list", Array{1, 2.5}}}},
    };
    std::vector<std::string> expressions;
    for (const auto& [python, value] : cases) {
        expressions.push_back(python);
    }
    std::vector<Data> bytes = pythonPropertyLists(expressions);
    ASSERT_EQ(bytes.size(), std::size(cases));
    for (size_t i = 0; i < bytes.size(); ++i) {
        EXPECT_EQ(TVKKeyedArchiveDecoder::decodeRootObject(bytes[i]), cases[i].second)
            << cases[i].first;
    }

    // XML property lists have no UID type: they write each reference as {"CF$UID": n}.
    std::vector<Data> xml = pythonPropertyLists(
        {"{'$archiver': 'NSKeyedArchiver', '$version': 100000, '$top': {'root': {'CF$UID': 1}},"
         " '$objects': ['$null', {'NS.objects': [{'CF$UID': 2}], '$class': {'CF$UID': 3}}, 'x',"
         " cls('NSArray')]}"},
        "FMT_XML");
    ASSERT_EQ(xml.size(), 1u);
    EXPECT_EQ(TVKKeyedArchiveDecoder::decodeRootObject(xml[0]), Value(Array{"x"}));
}

TEST(KeyedArchiveDecoder, RejectsMalformedArchives) {
    TestRuntime test;
    std::vector<std::string> cases = {
        // A plain property list, another archiver.
        "{'a': 1}",
        "{'$archiver': 'Other', '$version': 100000, '$top': {'root': UID(1)},"
        " '$objects': ['$null', 'x']}",
        // A root that is a number rather than a UID, a member out of range.
        "archive(['$null', 'x'], root=1)",
        "archive(['$null', {'NS.objects': [UID(9)], '$class': UID(2)}, cls('NSArray')])",
        // Two arrays holding each other.
        "archive(['$null', {'NS.objects': [UID(3)], '$class': UID(2)}, cls('NSArray'),"
        " {'NS.objects': [UID(1)], '$class': UID(2)}])",
        // No $class, a class the decoder does not know.
        "archive(['$null', {'NS.objects': []}])",
        "archive(['$null', {'NS.uuidbytes': b'0123456789abcdef', '$class': UID(2)},"
        " cls('NSUUID')])",
        // Members that are not UIDs, keys and objects of different
        // counts, a date beyond what a date can hold, a plain array among the objects.
        "archive(['$null', {'NS.objects': [1, 2], '$class': UID(2)}, cls('NSArray')])",
        "archive(['$null', {'NS.keys': [UID(2)], 'NS.objects': [], '$class': UID(3)}, 'k',"
        " cls('NSDictionary')])",
        "archive(['$null', {'NS.time': 1e300, '$class': UID(2)}, cls('NSDate')])",
        "archive(['$null', ['x']])",
        // 40 levels, each array holding the next twice: 2^40 values once expanded.
        "archive(['$null'] + [{'NS.objects': [UID(i + 1), UID(i + 1)], '$class': UID(42)}"
        " for i in range(1, 41)] + ['leaf', cls('NSArray')])",
        // Arrays nested 1000 deep through references.
        "archive(['$null'] + [{'NS.objects': [UID(i + 1)], '$class': UID(1002)}"
        " for i in range(1, 1001)] + ['leaf', cls('NSArray')])",
        // Plain arrays nested in place, not through references: refused while reading.
        "archive(['$null', nested(9000, 'x')])",
        // 40 kB of data shown 1000 times: 40 MB once expanded.
        "archive(['$null', {'NS.objects': [UID(2)] * 1000, '$class': UID(3)},"
        " bytes(40000), cls('NSArray')])",
    };
    std::vector<Data> bytes = pythonPropertyLists(cases);
    ASSERT_EQ(bytes.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(TVKKeyedArchiveDecoder::decodeRootObject(bytes[i]), std::nullopt) << cases[i];
    }
    EXPECT_EQ(TVKKeyedArchiveDecoder::decodeRootObject(Data{}), std::nullopt);
}

}  // namespace
}  // namespace tarvik
