#include "Helpers/NSUserDefaults+Tarvik.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/PythonPropertyLists.h"

#include <gtest/gtest.h>

#include <chrono>

namespace tarvik {
namespace {

using testing::TestRuntime;

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

TEST(UserDefaults, KeepsTheAppsJsonCollectionsAndDescribesEverythingElse) {
    TestRuntime test;
    Date date{std::chrono::seconds(1767323045)};  // 2026-01-02T03:04:05Z
    std::vector<Data> archives = testsupport::pythonPropertyLists({
        "archive(['$null', 'hello world'])",
        "archive(['$null', {'NS.keys': [UID(2), UID(3)], 'NS.objects': [UID(4), UID(5)],"
        " '$class': UID(9)}, 'name', 'list', 'x', {'NS.objects': [UID(6), UID(7)],"
        " '$class': UID(8)}, 1, {'NS.time': 0.0, '$class': UID(10)}, cls('NSArray'),"
        " cls('NSDictionary'), cls('NSDate')])",
        "archive(['$null'], root=UID(0))",
        // An archive whose array holds itself.
        "archive(['$null', {'NS.objects': [UID(1)], '$class': UID(2)}, cls('NSArray')])",
    });
    ASSERT_EQ(archives.size(), 4u);
    // Only the application's own domain is read, not the global, registered or other ones.
    auto& defaults = test.platform().userDefaults();
    defaults.setPersistentDomain({{"AppleLanguages", Array{"en"}}}, "NSGlobalDomain");
    defaults.setPersistentDomain({{"registered", "default"}}, "NSRegistrationDomain");
    defaults.setPersistentDomain({{"other", "app"}}, "com.example.other");
    setHostDefaults({
        {"count", 42},
        {"whole", 3.0},
        {"flag", true},
        {"when", date},
        {"settings", Dictionary{{"k", "v"}, {"n", Array{2}}}},
        {"dictionaryWithDate", Dictionary{{"at", date}, {"name", "é"}, {"words", "two words"}}},
        {"listWithData", Array{Data{0xab}}},
        {"large", countingBytes(50000)},
        {"belowLimit", countingBytes(49999)},
        {"archivedString", archives[0]},
        {"archivedDictionary", archives[1]},
        {"archivedNil", archives[2]},
        {"malformedArchive", archives[3]},
    });
    Dictionary expected = {
        {"count", "42"},
        {"whole", "3"},
        {"flag", "1"},
        {"when", "2026-01-02 03:04:05 +0000"},
        {"settings", Dictionary{{"k", "v"}, {"n", Array{2}}}},
        // Strings with other than letters and digits are quoted, non-ASCII escaped.
        {"dictionaryWithDate",
         "{\n    at = \"2026-01-02 03:04:05 +0000\";\n    name = \"\\U00e9\";\n"
         "    words = \"two words\";\n}"},
        {"listWithData", "(\n    {length = 1, bytes = 0xab}\n)"},
        // Data from the limit on is only measured; below it, data that is no keyed archive
        // shows its bytes.
        {"large", "NSData - 50000 bytes"},
        {"belowLimit",
         "{length = 49999, bytes = 0x00010203 04050607 08090a0b 0c0d0e0f ... 4748494a 4b4c4d4e }"},
        {"archivedString", "hello world"},
        {"archivedDictionary",
         "{\n"
         "    list =     (\n"
         "        1,\n"
         "        \"2001-01-01 00:00:00 +0000\"\n"
         "    );\n"
         "    name = x;\n"
         "}"},
        // An archived nil has no description, so its key is left out.
        {"malformedArchive", Value(archives[3]).description()},
    };
    EXPECT_EQ(tarvik_userDefaults(), expected);

    // A host without a bundle identifier has no domain of its own.
    test.platform().setMainBundleInfo({});
    EXPECT_EQ(tarvik_userDefaults(), Dictionary{});
}

}  // namespace
}  // namespace tarvik
