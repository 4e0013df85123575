#include "Helpers/NSUserDefaults+Tarvik.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/PythonPropertyLists.h"

#include <gtest/gtest.h>

#include <chrono>

namespace tarvik {
namespace {

using testing::TestRuntime;
using testsupport::pythonPropertyLists;

const std::string kHostDomain = "com.example.host";

void setHostDefaults(const Dictionary& domain) {
    Runtime::current().platform().userDefaults().setPersistentDomain(domain, kHostDomain);
}

// Bytes 0, 1, 2, ... 255, 0, 1, ...: no keyed archive.
Data countingBytes(size_t length) {
    Data data(length);
    for (size_t i = 0; i < length; ++i) {
        data[i] = static_cast<std::uint8_t>(i % 256);
    }
    return data;
}

TEST(UserDefaults, KeepsJsonCollectionsAndDescribesEverythingElse) {
    TestRuntime test;
    Date date{std::chrono::seconds(1767323045)};  // 2026-01-02T03:04:05Z
    setHostDefaults({
        {"text", "plain words"},
        {"count", 42},
        {"ratio", 0.25},
        {"flag", true},
        {"when", date},
        {"list", Array{"a", 1, false}},
        {"settings", Dictionary{{"k", "v"}, {"n", Array{2}}}},
        {"empty", Array{}},
        {"dictionaryWithDate", Dictionary{{"at", date}}},
        {"listWithData", Array{Data{0xab}}},
    });
    Dictionary expected = {
        {"text", "plain words"},
        {"count", "42"},
        {"ratio", "0.25"},
        {"flag", "1"},
        {"when", "2026-01-02 03:04:05 +0000"},
        {"list", Array{"a", 1, false}},
        {"settings", Dictionary{{"k", "v"}, {"n", Array{2}}}},
        {"empty", Array{}},
        {"dictionaryWithDate", "{\n    at = \"2026-01-02 03:04:05 +0000\";\n}"},
        {"listWithData", "(\n    {length = 1, bytes = 0xab}\n)"},
    };
    EXPECT_EQ(tarvik_userDefaults(), expected);
}

TEST(UserDefaults, LargeDataIsOnlyMeasured) {
    TestRuntime test;
    setHostDefaults({{"large", countingBytes(60000)},
                     {"limit", countingBytes(50000)},
                     {"belowLimit", countingBytes(49999)}});
    Dictionary result = tarvik_userDefaults();
    EXPECT_EQ(result["large"], Value("NSData - 60000 bytes"));
    EXPECT_EQ(result["limit"], Value("NSData - 50000 bytes"));
    // Below the limit but no keyed archive: the bytes' own description.
    EXPECT_EQ(result["belowLimit"],
              Value("{length = 49999, bytes = 0x00010203 04050607 08090a0b 0c0d0e0f ... "
                    "4748494a 4b4c4d4e }"));
}

TEST(UserDefaults, KeyedArchivesBecomeTheDescriptionOfTheirObject) {
    TestRuntime test;
    std::vector<std::string> names = {"string", "integer", "real",       "date",
                                      "data",   "array",   "dictionary", "nil"};
    std::vector<Data> archives = pythonPropertyLists({
        "archive(['$null', 'hello world'])",
        "archive(['$null', 42])",
        "archive(['$null', 2.5])",
        "archive(['$null', {'NS.time': 86400.0, '$class': UID(2)}, cls('NSDate')])",
        "archive(['$null', {'NS.data': b'\\x01\\x02\\xff', '$class': UID(2)}, cls('NSData')])",
        "archive(['$null', {'NS.objects': [UID(2), UID(3)], '$class': UID(4)}, 'a', 7,"
        " cls('NSMutableArray', 'NSArray')])",
        "archive(['$null', {'NS.keys': [UID(2), UID(3), UID(4)],"
        " 'NS.objects': [UID(5), UID(6), UID(9)], '$class': UID(12)}, 'name', 'list', 'when',"
        " 'x', {'NS.objects': [UID(7), UID(8)], '$class': UID(11)}, 1, 2,"
        " {'NS.time': 0.0, '$class': UID(10)}, cls('NSDate'), cls('NSArray'),"
        " cls('NSDictionary')])",
        "archive(['$null'], root=UID(0))",
    });
    ASSERT_EQ(archives.size(), names.size());
    Dictionary domain;
    for (size_t i = 0; i < names.size(); ++i) {
        domain[names[i]] = archives[i];
    }
    setHostDefaults(domain);

    Dictionary expected = {
        {"string", "hello world"},
        {"integer", "42"},
        {"real", "2.5"},
        {"date", "2001-01-02 00:00:00 +0000"},
        {"data", "{length = 3, bytes = 0x0102ff}"},
        {"array", "(\n    a,\n    7\n)"},
        {"dictionary",
         "{\n"
         "    list =     (\n"
         "        1,\n"
         "        2\n"
         "    );\n"
         "    name = x;\n"
         "    when = \"2001-01-01 00:00:00 +0000\";\n"
         "}"},
        // An archived nil has no description, so its key is left out.
    };
    EXPECT_EQ(tarvik_userDefaults(), expected);
}

TEST(UserDefaults, MalformedArchivesFallBackToTheirBytes) {
    TestRuntime test;
    std::vector<Data> archives = pythonPropertyLists({
        "archive(['$null', {'NS.objects': [UID(9)], '$class': UID(2)}, cls('NSArray')])",
        "archive(['$null', {'NS.objects': [UID(1)], '$class': UID(2)}, cls('NSArray')])",
        "{'$archiver': 'NSKeyedArchiver', '$version': 100000, '$objects': ['$null', 'x']}",
    });
    ASSERT_EQ(archives.size(), 3u);
    setHostDefaults({{"outOfRange", archives[0]}, {"cycle", archives[1]}, {"noTop", archives[2]}});
    Dictionary result = tarvik_userDefaults();
    EXPECT_EQ(result["outOfRange"], Value(Value(archives[0]).description()));
    EXPECT_EQ(result["cycle"], Value(Value(archives[1]).description()));
    EXPECT_EQ(result["noTop"], Value(Value(archives[2]).description()));
}

TEST(UserDefaults, ReadsOnlyTheApplicationsOwnDomain) {
    TestRuntime test;
    auto& defaults = test.platform().userDefaults();
    EXPECT_EQ(tarvik_userDefaults(), Dictionary{});

    defaults.setPersistentDomain({{"AppleLanguages", Array{"en"}}}, "NSGlobalDomain");
    defaults.setPersistentDomain({{"registered", "default"}}, "NSRegistrationDomain");
    defaults.setPersistentDomain({{"other", "app"}}, "com.example.other");
    setHostDefaults({{"own", "value"}});
    EXPECT_EQ(tarvik_userDefaults(), (Dictionary{{"own", "value"}}));

    // A host without a bundle identifier has no domain of its own.
    test.platform().setMainBundleInfo({});
    EXPECT_EQ(tarvik_userDefaults(), Dictionary{});
}

}  // namespace
}  // namespace tarvik
