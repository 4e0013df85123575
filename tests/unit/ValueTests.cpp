#include "Platform/JsonValue.h"
#include "Platform/PropertyList.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"

#include <gtest/gtest.h>

namespace tarvik {
namespace {

// Every kind of value, with texts that need escaping in XML and a date with microseconds.
Value sample() {
    return Dictionary{
        {"flag", true},
        {"one", 1},
        {"large", std::int64_t{-1} << 62},
        {"real", 12.5},
        {"text", "héllo <&> \"world\""},
        {"date", Date(std::chrono::microseconds(1767323045123456))},
        {"data", Data{0x00, 0xff, 0x10}},
        {"list", Array{1, "two", Array{}, Dictionary{{"inner", false}}}},
    };
}

std::vector<std::string> keys(const Value& value) {
    std::vector<std::string> names;
    for (const auto& [key, member] : *value.asDictionary()) {
        names.push_back(key);
    }
    return names;
}

TEST(PropertyList, BothFormatsRoundTripAndPythonPlistlibReadsTheFiles) {
    testing::TestRuntime test;
    std::optional<Data> binary = plist::toBinary(sample());
    ASSERT_TRUE(binary);
    std::optional<Value> read = plist::parse(
        std::string_view(reinterpret_cast<const char*>(binary->data()), binary->size()));
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, sample());
    // Members are written and read in the order the dictionary was built in.
    EXPECT_EQ(keys(*read), keys(sample()));
    // XML dates keep whole seconds only.
    Value withoutDate = sample();
    withoutDate.asDictionary()->erase("date");
    std::optional<std::string> xml = plist::toXml(withoutDate);
    ASSERT_TRUE(xml);
    EXPECT_EQ(plist::parse(*xml), withoutDate);

    std::string path = test.root() + "/sample file é.plist";
    ASSERT_TRUE(plist::writeFileAtomically(sample(), path));
    auto result = testsupport::runPython(R"(
import plistlib, sys, datetime
d = plistlib.load(open(sys.argv[1], 'rb'))
assert d['flag'] is True and type(d['one']) is int and d['one'] == 1, d
assert d['large'] == -1 << 62 and d['real'] == 12.5, d
assert d['text'] == 'héllo <&> "world"' and d['data'] == b'\x00\xff\x10', d
assert d['date'] == datetime.datetime(2026, 1, 2, 3, 4, 5, 123456), d['date']
assert d['list'] == [1, 'two', [], {'inner': False}], d['list']
assert list(d) == ['flag', 'one', 'large', 'real', 'text', 'date', 'data', 'list'], list(d)
)",
                                         testsupport::shellQuoted(path));
    EXPECT_EQ(result.exitCode, 0) << result.output;

    // Null cannot be written, and what is no property list cannot be read.
    EXPECT_FALSE(plist::toBinary(Dictionary{{"missing", Value()}}));
    EXPECT_FALSE(plist::parse(""));
    EXPECT_FALSE(plist::parse("this is not a property list"));
}

// A key keeps the place of its first insertion; equality does not depend on the order.
TEST(Dictionary, KeepsInsertionOrderThroughChangesAndCopies) {
    Dictionary dictionary{{"b", 1}, {"a", 2}, {"b", 3}};
    dictionary["c"] = 4;
    dictionary["b"] = 5;
    dictionary.erase("a");
    dictionary.emplace("a", 6);
    Dictionary copy;
    copy = dictionary;
    dictionary.clear();
    EXPECT_EQ(keys(copy), (std::vector<std::string>{"b", "c", "a"}));
    EXPECT_EQ(copy.at("b"), Value(5));
    EXPECT_EQ(copy, (Dictionary{{"a", 6}, {"b", 5}, {"c", 4}}));
    EXPECT_NE(copy, (Dictionary{{"a", 6}, {"b", 5}}));
    EXPECT_EQ(copy.find("missing"), copy.end());
}

TEST(Json, CompactTextKeepsBooleansApartFromIntegers) {
    Value value = Dictionary{{"t", true}, {"n", 1}, {"r", 2.5}, {"s", "x"}, {"a", Array{Value()}}};
    std::optional<std::string> text = json::compactText(value);
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, R"({"t":true,"n":1,"r":2.5,"s":"x","a":[null]})");
    EXPECT_EQ(json::parse(*text), value);
    EXPECT_EQ(keys(*json::parse(*text)), (std::vector<std::string>{"t", "n", "r", "s", "a"}));
    EXPECT_FALSE(json::parse("{not json"));
    EXPECT_FALSE(json::compactText(Array{std::numeric_limits<double>::infinity()}));
}

std::string_view bytesOf(const Data& data) {
    return std::string_view(reinterpret_cast<const char*>(data.data()), data.size());
}

std::string nestedXmlList(int levels) {
    std::string text = R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)";
    for (int i = 0; i < levels; ++i) {
        text += i % 2 ? "<dict><key>k</key>" : "<array>";
    }
    for (int i = levels - 1; i >= 0; --i) {
        text += i % 2 ? "</dict>" : "</array>";
    }
    return text + "</plist>";
}

// A binary list of `levels` arrays, each holding the next `width` times (the same object, as a
// shared reference), the last one empty; `cycle` makes the last hold the first instead.
Data nestedBinaryList(std::uint32_t levels, std::uint32_t width = 1, bool cycle = false) {
    Data bytes{'b', 'p', 'l', 'i', 's', 't', '0', '0'};
    auto put = [&bytes](std::uint64_t number, int size) {
        for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<std::uint8_t>(number >> shift));
        }
    };
    std::vector<std::uint64_t> offsets;
    for (std::uint32_t i = 0; i < levels; ++i) {
        offsets.push_back(bytes.size());
        bool last = i + 1 == levels;
        if (last && !cycle) {
            bytes.push_back(0xA0);
            continue;
        }
        bytes.push_back(static_cast<std::uint8_t>(0xA0 | width));
        for (std::uint32_t k = 0; k < width; ++k) {
            put(last ? 0 : i + 1, 4);
        }
    }
    std::uint64_t tableOffset = bytes.size();
    for (std::uint64_t offset : offsets) {
        put(offset, 4);
    }
    bytes.insert(bytes.end(), {0, 0, 0, 0, 0, 0, 4, 4});
    put(levels, 8);
    put(0, 8);
    put(tableOffset, 8);
    return bytes;
}

// Outside input (an answer from the service, the host's defaults) nested deeper than any
// document the SDK reads is refused before it is followed, so no reader recurses without bound.
TEST(NestingLimits, ListsAndDocumentsNestedTooDeepAreRefusedWithoutExhaustingTheStack) {
    auto nestedJson = [](int levels) {
        return std::string(levels, '[') + std::string(levels, ']');
    };
    EXPECT_TRUE(json::parse(nestedJson(256)));
    EXPECT_FALSE(json::parse(nestedJson(257)));
    std::string deepJson = nestedJson(1000000);
    EXPECT_FALSE(json::parseDocument(Data(deepJson.begin(), deepJson.end())));

    EXPECT_TRUE(plist::parse(nestedXmlList(256)));
    EXPECT_FALSE(plist::parse(nestedXmlList(257)));
    EXPECT_FALSE(plist::parse(nestedXmlList(1000000)));
    EXPECT_TRUE(plist::parse(bytesOf(nestedBinaryList(256))));
    EXPECT_FALSE(plist::parse(bytesOf(nestedBinaryList(257))));
    EXPECT_FALSE(plist::parse(bytesOf(nestedBinaryList(1000000))));
    EXPECT_FALSE(plist::parse(bytesOf(nestedBinaryList(3, 1, true))));
    // Shared objects are expanded by the reader: 2^40 values are refused, not built.
    EXPECT_FALSE(plist::parse(bytesOf(nestedBinaryList(40, 2))));
    std::optional<Value> shared = plist::parse(bytesOf(nestedBinaryList(3, 2)));
    ASSERT_TRUE(shared);
    EXPECT_EQ(*shared, Value(Array{Array{Array{}, Array{}}, Array{Array{}, Array{}}}));
}

}  // namespace
}  // namespace tarvik
