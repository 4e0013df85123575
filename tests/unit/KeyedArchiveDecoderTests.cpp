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

struct ArchiveCase {
    std::string name;
    std::string python;
};

// Builds every case's archive with Python in one run.
std::vector<Data> archivesOf(const std::vector<ArchiveCase>& cases,
                             const std::string& format = "FMT_BINARY") {
    std::vector<std::string> expressions;
    for (const ArchiveCase& c : cases) {
        expressions.push_back(c.python);
    }
    return pythonPropertyLists(expressions, format);
}

Date referenceDatePlus(double seconds) {
    return Date(std::chrono::seconds(978307200)) +
           std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
}

TEST(KeyedArchiveDecoder, DecodesEveryKindOfValue) {
    TestRuntime test;
    const std::string nestedDictionary =
        "archive(['$null', {'NS.keys': [UID(2), UID(3), UID(4)],"
        " 'NS.objects': [UID(5), UID(6), UID(9)], '$class': UID(12)}, 'name', 'list', 'when',"
        " 'x', {'NS.objects': [UID(7), UID(8)], '$class': UID(11)}, 1, 2.5,"
        " {'NS.time': 0.0, '$class': UID(10)}, cls('NSDate'),"
        " cls('NSMutableArray', 'NSArray'), cls('NSDictionary')])";
    struct Expected {
        ArchiveCase archive;
        Value value;
    };
    std::vector<Expected> cases = {
        {{"string", "archive(['$null', 'hello'])"}, "hello"},
        {{"mutable string",
          "archive(['$null', {'NS.string': 'changeable', '$class': UID(2)},"
          " cls('NSMutableString', 'NSString')])"},
         "changeable"},
        {{"integer", "archive(['$null', 42])"}, 42},
        {{"negative integer", "archive(['$null', -7])"}, -7},
        {{"real", "archive(['$null', 2.5])"}, 2.5},
        {{"boolean", "archive(['$null', True])"}, true},
        {{"date", "archive(['$null', {'NS.time': 86400.5, '$class': UID(2)}, cls('NSDate')])"},
         referenceDatePlus(86400.5)},
        {{"plain data", "archive(['$null', b'\\x01\\x02\\xff'])"}, Data{0x01, 0x02, 0xff}},
        {{"mutable data",
          "archive(['$null', {'NS.data': b'\\x00\\x10', '$class': UID(2)},"
          " cls('NSMutableData', 'NSData')])"},
         Data{0x00, 0x10}},
        {{"array",
          "archive(['$null', {'NS.objects': [UID(2), UID(3)], '$class': UID(4)}, 'a', 7,"
          " cls('NSArray')])"},
         Array{"a", 7}},
        {{"set reads as an array",
          "archive(['$null', {'NS.objects': [UID(2)], '$class': UID(3)}, 'only', cls('NSSet')])"},
         Array{"only"}},
        {{"shared object is not a cycle",
          "archive(['$null', {'NS.objects': [UID(2), UID(2)], '$class': UID(3)}, 'twice',"
          " cls('NSArray')])"},
         Array{"twice", "twice"}},
        {{"number key",
          "archive(['$null', {'NS.keys': [UID(2)], 'NS.objects': [UID(3)], '$class': UID(4)},"
          " 5, 'five', cls('NSMutableDictionary', 'NSDictionary')])"},
         Dictionary{{"5", "five"}}},
        {{"nested dictionary", nestedDictionary},
         Dictionary{{"name", "x"}, {"list", Array{1, 2.5}}, {"when", referenceDatePlus(0)}}},
        {{"archived nil", "archive(['$null'], root=UID(0))"}, Value()},
    };
    std::vector<ArchiveCase> archives;
    for (const Expected& c : cases) {
        archives.push_back(c.archive);
    }
    std::vector<Data> bytes = archivesOf(archives);
    ASSERT_EQ(bytes.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        std::optional<Value> decoded = TVKKeyedArchiveDecoder::decodeRootObject(bytes[i]);
        ASSERT_TRUE(decoded) << cases[i].archive.name;
        EXPECT_EQ(*decoded, cases[i].value) << cases[i].archive.name;
    }
}

TEST(KeyedArchiveDecoder, ReadsXmlArchives) {
    TestRuntime test;
    // XML property lists have no UID type: they write each reference as {"CF$UID": n}.
    std::vector<Data> bytes = pythonPropertyLists(
        {"{'$archiver': 'NSKeyedArchiver', '$version': 100000, '$top': {'root': {'CF$UID': 1}},"
         " '$objects': ['$null', {'NS.objects': [{'CF$UID': 2}], '$class': {'CF$UID': 3}}, 'x',"
         " cls('NSArray')]}"},
        "FMT_XML");
    ASSERT_EQ(bytes.size(), 1u);
    EXPECT_EQ(TVKKeyedArchiveDecoder::decodeRootObject(bytes[0]), Value(Array{"x"}));
}

TEST(KeyedArchiveDecoder, RejectsMalformedArchives) {
    TestRuntime test;
    std::vector<ArchiveCase> cases = {
        {"plain property list", "{'a': 1}"},
        {"another archiver",
         "{'$archiver': 'Other', '$version': 100000, '$top': {'root': UID(1)},"
         " '$objects': ['$null', 'x']}"},
        {"missing $top", "{'$archiver': 'NSKeyedArchiver', '$objects': ['$null', 'x']}"},
        {"missing $objects", "{'$archiver': 'NSKeyedArchiver', '$top': {'root': UID(1)}}"},
        {"root is a number, not a UID", "archive(['$null', 'x'], root=1)"},
        {"root out of range", "archive(['$null', 'x'], root=UID(5))"},
        {"member out of range",
         "archive(['$null', {'NS.objects': [UID(9)], '$class': UID(2)}, cls('NSArray')])"},
        {"class out of range", "archive(['$null', {'NS.objects': [], '$class': UID(7)}])"},
        {"array holding itself",
         "archive(['$null', {'NS.objects': [UID(1)], '$class': UID(2)}, cls('NSArray')])"},
        {"two arrays holding each other",
         "archive(['$null', {'NS.objects': [UID(3)], '$class': UID(2)}, cls('NSArray'),"
         " {'NS.objects': [UID(1)], '$class': UID(2)}])"},
        {"missing $class", "archive(['$null', {'NS.objects': []}])"},
        {"$class is no class entry",
         "archive(['$null', {'NS.objects': [], '$class': UID(2)}, 'NSArray'])"},
        {"unknown class",
         "archive(['$null', {'NS.uuidbytes': b'0123456789abcdef', '$class': UID(2)},"
         " cls('NSUUID')])"},
        {"members that are not UIDs",
         "archive(['$null', {'NS.objects': [1, 2], '$class': UID(2)}, cls('NSArray')])"},
        {"nil inside an array",
         "archive(['$null', {'NS.objects': [UID(0)], '$class': UID(2)}, cls('NSArray')])"},
        {"keys and objects of different counts",
         "archive(['$null', {'NS.keys': [UID(2)], 'NS.objects': [], '$class': UID(3)}, 'k',"
         " cls('NSDictionary')])"},
        {"string member of the wrong type",
         "archive(['$null', {'NS.string': 5, '$class': UID(2)}, cls('NSString')])"},
        {"date beyond what a date can hold",
         "archive(['$null', {'NS.time': 1e300, '$class': UID(2)}, cls('NSDate')])"},
        {"a plain array among the objects", "archive(['$null', ['x']])"},
    };
    std::vector<Data> bytes = archivesOf(cases);
    ASSERT_EQ(bytes.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(TVKKeyedArchiveDecoder::decodeRootObject(bytes[i]), std::nullopt)
            << cases[i].name;
    }
    EXPECT_EQ(TVKKeyedArchiveDecoder::decodeRootObject(Data{}), std::nullopt);
    EXPECT_EQ(TVKKeyedArchiveDecoder::decodeRootObject(Data{'b', 'p', 'l', 'i', 's', 't'}),
              std::nullopt);
}

TEST(KeyedArchiveDecoder, BoundsDepthAndExpansion) {
    TestRuntime test;
    // Arrays nested `levels` deep: object i holds object i + 1, the innermost holds "leaf".
    auto nestedArrays = [](int levels) {
        std::string n = std::to_string(levels);
        return "archive(['$null'] + [{'NS.objects': [UID(i + 1)], '$class': UID(" + n +
               " + 2)} for i in range(1, " + n + " + 1)] + ['leaf', cls('NSArray')])";
    };
    std::vector<ArchiveCase> cases = {
        {"within the depth limit", nestedArrays(150)},
        {"beyond the depth limit", nestedArrays(1000)},
        // 40 levels, each array holding the next twice: 2^40 values once expanded.
        {"exponential sharing",
         "archive(['$null'] + [{'NS.objects': [UID(i + 1), UID(i + 1)], '$class': UID(42)}"
         " for i in range(1, 41)] + ['leaf', cls('NSArray')])"},
        // Plain arrays nested in place, not through references: refused while reading.
        {"deeply nested property list", "archive(['$null', nested(9000, 'x')])"},
        // 40 kB of data shown 1000 times: 40 MB once expanded.
        {"large shared data",
         "archive(['$null', {'NS.objects': [UID(2)] * 1000, '$class': UID(3)},"
         " bytes(40000), cls('NSArray')])"},
    };
    std::vector<Data> bytes = archivesOf(cases);
    ASSERT_EQ(bytes.size(), cases.size());

    std::optional<Value> shallow = TVKKeyedArchiveDecoder::decodeRootObject(bytes[0]);
    ASSERT_TRUE(shallow);
    const Value* level = &*shallow;
    for (int i = 0; i < 150; ++i) {
        ASSERT_TRUE(level->isArray() && level->asArray()->size() == 1) << "level " << i;
        level = &level->asArray()->front();
    }
    EXPECT_EQ(*level, Value("leaf"));

    for (size_t i = 1; i < cases.size(); ++i) {
        EXPECT_LT(bytes[i].size(), 50000u) << cases[i].name;
        EXPECT_EQ(TVKKeyedArchiveDecoder::decodeRootObject(bytes[i]), std::nullopt)
            << cases[i].name;
    }
}

}  // namespace
}  // namespace tarvik
