#pragma once

#include <tarvik/Value.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace tarvik {

// Reads the root object of a keyed archive: a property list (binary or XML) with
// "$archiver" = "NSKeyedArchiver", "$top" = {"root": UID} and "$objects" = ["$null", ...], whose
// objects refer to each other by UID and name their class through "$class".
//
// Understood: strings (plain, or "NS.string"), numbers and booleans, dates ("NS.time", seconds
// since 2001-01-01), data (plain, or "NS.data"), arrays and sets ("NS.objects"; a set reads as
// an array), dictionaries ("NS.keys" and "NS.objects"; keys that are not strings are keyed by
// their description), nested in one another.
//
// Anything else gives none: bytes that are no keyed archive, a class the SDK does not know, a
// reference outside "$objects", an object that contains itself, a missing or mistyped member, a
// date the SDK's date type cannot hold, nesting deeper than kMaxDepth, or a graph whose shared
// objects expand to more than kMaxDecodedObjects objects or kMaxDecodedBytes bytes of text and
// data. The caller decides what to show instead.
class TVKKeyedArchiveDecoder {
  public:
    static constexpr int kMaxDepth = 200;
    static constexpr std::size_t kMaxDecodedObjects = 100000;
    static constexpr std::size_t kMaxDecodedBytes = 8 * 1024 * 1024;

    // The decoded root object; a null value when the archive holds nil ("$null"), none when
    // the bytes are not a keyed archive this decoder can read.
    static std::optional<Value> decodeRootObject(const Data& archive);

  private:
    explicit TVKKeyedArchiveDecoder(const Array& objects);

    // `reference` must be a UID; `depth` counts the containers above it.
    std::optional<Value> decodeReference(const Value& reference, int depth);
    std::optional<Value> decodeObject(std::size_t index, int depth);
    std::optional<Value> decodeClassedObject(const Dictionary& object, int depth);
    // A member that is either written in place or a UID of another object.
    std::optional<Value> decodeMember(const Dictionary& object, const char* key, int depth);
    // The members of an "NS.objects" or "NS.keys" list, none of them nil.
    std::optional<Array> decodeReferenceList(const Dictionary& object, const char* key, int depth);
    std::optional<Value> decodeDictionary(const Dictionary& object, int depth);

    const Array& objects_;
    // The objects being decoded on the current path; meeting one again means a cycle.
    std::vector<bool> onPath_;
    std::size_t decodedObjects_ = 0;
    std::size_t decodedBytes_ = 0;
};

}  // namespace tarvik
