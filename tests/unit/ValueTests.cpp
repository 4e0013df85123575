#include "Platform/JsonValue.h"
#include "Platform/PropertyList.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"

#include <gtest/gtest.h>

#include <fstream>

namespace tarvik {
namespace {

using testsupport::runPython;
using testsupport::shellQuoted;

Date dateFromUnixMicros(std::int64_t micros) {
    return Date(std::chrono::duration_cast<Date::duration>(std::chrono::microseconds(micros)));
}

Value sample() {
    return Dictionary{
        {"flag", true},
        {"zero", 0},
        {"one", 1},
        {"negative", -42},
        {"large", std::int64_t{1} << 62},
        {"real", 12.5},
        {"text", "héllo <&> \"world\""},
        {"date", dateFromUnixMicros(1767323045123456)},
        {"data", Data{0x00, 0xff, 0x10}},
        {"list", Array{1, "two", Array{}, Dictionary{}}},
        {"nested", Dictionary{{"inner", false}}},
    };
}

TEST(PropertyList, BinaryAndXmlRoundTripKeepEveryKind) {
    auto binary = plist::toBinary(sample());
    ASSERT_TRUE(binary);
    auto fromBinary = plist::parse(
        std::string_view(reinterpret_cast<const char*>(binary->data()), binary->size()));
    ASSERT_TRUE(fromBinary);
    EXPECT_EQ(*fromBinary, sample());
    // Booleans stay booleans and integers stay integers.
    EXPECT_TRUE(fromBinary->find("flag")->isBool());
    EXPECT_TRUE(fromBinary->find("one")->isInteger());

    auto xml = plist::toXml(sample());
    ASSERT_TRUE(xml);
    auto fromXml = plist::parse(*xml);
    ASSERT_TRUE(fromXml);
    EXPECT_TRUE(fromXml->find("flag")->isBool());
    EXPECT_EQ(*fromXml->find("negative"), Value(-42));
    EXPECT_EQ(*fromXml->find("data"), Value(Data{0x00, 0xff, 0x10}));
}

TEST(PropertyList, NullCannotBeWrittenAndGarbageCannotBeRead) {
    EXPECT_FALSE(plist::toBinary(Dictionary{{"missing", Value()}}));
    EXPECT_FALSE(plist::parse(""));
    EXPECT_FALSE(plist::parse("this is not a property list"));
    EXPECT_FALSE(plist::readFile("/nonexistent/file.plist"));
}

TEST(PropertyList, FilesAreReadByPythonPlistlibWithTheirTypes) {
    testing::TestRuntime test;
    std::string path = test.root() + "/sample file é.plist";
    ASSERT_TRUE(plist::writeFileAtomically(sample(), path));
    auto result = runPython(R"(
import plistlib, sys, datetime
d = plistlib.load(open(sys.argv[1], 'rb'))
assert d['flag'] is True, d['flag']
assert type(d['one']) is int and d['one'] == 1
assert d['negative'] == -42 and d['large'] == 1 << 62
assert d['real'] == 12.5
assert d['text'] == 'héllo <&> "world"'
assert d['data'] == b'\x00\xff\x10'
assert d['date'] == datetime.datetime(2026, 1, 2, 3, 4, 5, 123456), d['date']
assert d['list'] == [1, 'two', [], {}]
assert d['nested'] == {'inner': False}
print('ok')
)",
                            shellQuoted(path));
    EXPECT_EQ(result.exitCode, 0) << result.output;
}

TEST(PropertyList, ReadsWhatPythonPlistlibWritesInBothFlavours) {
    testing::TestRuntime test;
    for (std::string format : {"FMT_XML", "FMT_BINARY"}) {
        std::string path = test.root() + "/python-" + format + ".plist";
        auto result = runPython(
            "import plistlib, sys, datetime\n"
            "d = {'b': False, 'i': 7, 'r': 0.1, 's': 'ä', 'd': datetime.datetime(2001, 1, 1, 0, 0, "
            "1), 'x': b'ab', 'a': [True]}\n"
            "plistlib.dump(d, open(sys.argv[1], 'wb'), fmt=plistlib." +
                format + ")\n",
            shellQuoted(path));
        ASSERT_EQ(result.exitCode, 0) << result.output;
        auto value = plist::readFile(path);
        ASSERT_TRUE(value) << format;
        EXPECT_EQ(*value->find("b"), Value(false));
        EXPECT_EQ(*value->find("i"), Value(7));
        EXPECT_EQ(*value->find("r"), Value(0.1));
        EXPECT_EQ(*value->find("s"), Value("ä"));
        EXPECT_EQ(*value->find("d"), Value(dateFromUnixMicros(978307201000000)));
        EXPECT_EQ(*value->find("x"), Value(Data{'a', 'b'}));
        EXPECT_EQ(*value->find("a"), Value(Array{true}));
    }
}

TEST(Json, RoundTripKeepsBooleansApartFromIntegers) {
    Value value = Dictionary{{"t", true}, {"n", 1}, {"r", 2.5}, {"s", "x"}, {"a", Array{Value()}}};
    auto text = json::compactText(value);
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, R"({"a":[null],"n":1,"r":2.5,"s":"x","t":true})");
    EXPECT_EQ(json::parse(*text), value);
}

TEST(Json, DatesDataAndNonFiniteNumbersAreNotJson) {
    EXPECT_FALSE(json::isValidJSONObject(Dictionary{{"d", Date()}}));
    EXPECT_FALSE(json::isValidJSONObject(Array{Data{1}}));
    EXPECT_FALSE(json::isValidJSONObject(Array{std::numeric_limits<double>::infinity()}));
    // Only a collection at the top is a JSON object.
    EXPECT_FALSE(json::isValidJSONObject(Value("text")));
    EXPECT_TRUE(json::isValidJSONObject(Array{}));
    EXPECT_FALSE(json::parse("{not json"));
}

TEST(ValueDescription, ScalarsReadAsTheirText) {
    EXPECT_EQ(Value("plain").description(), "plain");
    EXPECT_EQ(Value(true).description(), "1");
    EXPECT_EQ(Value(-3).description(), "-3");
    EXPECT_EQ(Value(12.5).description(), "12.5");
    EXPECT_EQ(Value(0.1).description(), "0.1");
    EXPECT_EQ(Value(3.0).description(), "3");
    EXPECT_EQ(Value(dateFromUnixMicros(978307200000000)).description(),
              "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(Value(Data{0xde, 0xad}).description(), "{length = 2, bytes = 0xdead}");
}

TEST(ValueDescription, CollectionsNestWithQuotedStrings) {
    Value array = Array{1, "two words", Array{2}};
    EXPECT_EQ(array.description(), "(\n    1,\n    \"two words\",\n        (\n        2\n    )\n)");
    Value dictionary = Dictionary{{"a", Dictionary{{"b", 1}}}, {"name", "é"}};
    EXPECT_EQ(dictionary.description(),
              "{\n    a =     {\n        b = 1;\n    };\n    name = \"\\U00e9\";\n}");
}

TEST(ValueNumbers, ConversionsFollowNumberObjects) {
    EXPECT_TRUE(Value(2).boolValue());
    EXPECT_FALSE(Value(0.0).boolValue());
    EXPECT_FALSE(Value("YES").boolValue());
    EXPECT_EQ(Value(true).integerValue(), 1);
    EXPECT_EQ(Value(-2.9).integerValue(), -2);
    EXPECT_EQ(Value().integerValue(), 0);
}

}  // namespace
}  // namespace tarvik
