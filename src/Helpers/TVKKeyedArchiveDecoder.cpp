#include "Helpers/TVKKeyedArchiveDecoder.h"

#include "Platform/PropertyList.h"

#include <cmath>
#include <map>
#include <string>
#include <string_view>

namespace tarvik {

namespace {

// Archived dates count seconds from 2001-01-01T00:00:00Z.
constexpr double kReferenceDateUnixSeconds = 978307200;
// The SDK's dates (nanoseconds from 1970 in 64 bits) reach about 292 years either way; an
// archived date beyond that cannot be shown.
constexpr double kLargestDateOffsetSeconds = 9.0e9;

enum class ArchivedKind { String, Date, Data, Array, Dictionary };

std::optional<ArchivedKind> kindOfClass(const std::string& className) {
    static const std::map<std::string, ArchivedKind> kKinds = {
        {"NSString", ArchivedKind::String},
        {"NSMutableString", ArchivedKind::String},
        {"NSDate", ArchivedKind::Date},
        {"NSData", ArchivedKind::Data},
        {"NSMutableData", ArchivedKind::Data},
        {"NSArray", ArchivedKind::Array},
        {"NSMutableArray", ArchivedKind::Array},
        {"NSSet", ArchivedKind::Array},
        {"NSMutableSet", ArchivedKind::Array},
        {"NSDictionary", ArchivedKind::Dictionary},
        {"NSMutableDictionary", ArchivedKind::Dictionary},
    };
    auto it = kKinds.find(className);
    if (it == kKinds.end()) {
        return std::nullopt;
    }
    return it->second;
}

// A UID as plist::parseKeepingUIDs gives it: {"CF$UID": n}.
std::optional<std::size_t> uidOf(const Value& value) {
    const Dictionary* dictionary = value.asDictionary();
    if (!dictionary || dictionary->size() != 1) {
        return std::nullopt;
    }
    const Value* number = value.find("CF$UID");
    if (!number || !number->isInteger() || *number->asInteger() < 0) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(*number->asInteger());
}

std::optional<Date> dateFromArchivedTime(const Value& time) {
    if (!time.isInteger() && !time.isReal()) {
        return std::nullopt;
    }
    double seconds = time.doubleValue();
    if (!std::isfinite(seconds) || std::fabs(seconds) > kLargestDateOffsetSeconds) {
        return std::nullopt;
    }
    auto sinceEpoch = std::chrono::duration<double>(seconds + kReferenceDateUnixSeconds);
    return Date(std::chrono::duration_cast<Date::duration>(sinceEpoch));
}

std::size_t byteLength(const Value& value) {
    if (const std::string* text = value.asString()) {
        return text->size();
    }
    if (const Data* data = value.asData()) {
        return data->size();
    }
    return 0;
}

}  // namespace

TVKKeyedArchiveDecoder::TVKKeyedArchiveDecoder(const Array& objects)
    : objects_(objects), onPath_(objects.size(), false) {}

std::optional<Value> TVKKeyedArchiveDecoder::decodeRootObject(const Data& archive) {
    std::optional<Value> plist = plist::parseKeepingUIDs(
        std::string_view(reinterpret_cast<const char*>(archive.data()), archive.size()));
    if (!plist) {
        return std::nullopt;
    }
    const Value* archiver = plist->find("$archiver");
    const Value* objects = plist->find("$objects");
    const Value* top = plist->find("$top");
    const Value* root = top ? top->find("root") : nullptr;
    if (!archiver || archiver->asString() == nullptr ||
        *archiver->asString() != "NSKeyedArchiver" || !objects || !objects->isArray() || !root) {
        return std::nullopt;
    }
    TVKKeyedArchiveDecoder decoder(*objects->asArray());
    return decoder.decodeReference(*root, 0);
}

std::optional<Value> TVKKeyedArchiveDecoder::decodeReference(const Value& reference, int depth) {
    std::optional<std::size_t> index = uidOf(reference);
    if (!index) {
        return std::nullopt;
    }
    return decodeObject(*index, depth);
}

std::optional<Value> TVKKeyedArchiveDecoder::decodeObject(std::size_t index, int depth) {
    if (index >= objects_.size()) {
        return std::nullopt;
    }
    // The first object, "$null", stands for nil.
    if (index == 0) {
        return Value();
    }
    // Shared objects are decoded once per use, so the totals, not only the depth, are bounded.
    decodedObjects_ += 1;
    if (depth > kMaxDepth || decodedObjects_ > kMaxDecodedObjects || onPath_[index]) {
        return std::nullopt;
    }
    const Value& object = objects_[index];
    std::optional<Value> decoded;
    if (const Dictionary* members = object.asDictionary()) {
        onPath_[index] = true;
        decoded = decodeClassedObject(*members, depth);
        onPath_[index] = false;
    } else if (!object.isArray()) {
        // Strings, numbers, booleans and data are archived in place.
        decoded = object;
    }
    if (decoded) {
        decodedBytes_ += byteLength(*decoded);
        if (decodedBytes_ > kMaxDecodedBytes) {
            return std::nullopt;
        }
    }
    return decoded;
}

std::optional<Value> TVKKeyedArchiveDecoder::decodeClassedObject(const Dictionary& object,
                                                                 int depth) {
    auto classReference = object.find("$class");
    if (classReference == object.end()) {
        return std::nullopt;
    }
    std::optional<std::size_t> classIndex = uidOf(classReference->second);
    if (!classIndex || *classIndex >= objects_.size()) {
        return std::nullopt;
    }
    const Value* className = objects_[*classIndex].find("$classname");
    if (!className || !className->isString()) {
        return std::nullopt;
    }
    std::optional<ArchivedKind> kind = kindOfClass(*className->asString());
    if (!kind) {
        return std::nullopt;
    }
    switch (*kind) {
        case ArchivedKind::String: {
            std::optional<Value> text = decodeMember(object, "NS.string", depth);
            return text && text->isString() ? text : std::nullopt;
        }
        case ArchivedKind::Date: {
            std::optional<Value> time = decodeMember(object, "NS.time", depth);
            std::optional<Date> date = time ? dateFromArchivedTime(*time) : std::nullopt;
            return date ? std::optional<Value>(*date) : std::nullopt;
        }
        case ArchivedKind::Data: {
            std::optional<Value> bytes = decodeMember(object, "NS.data", depth);
            return bytes && bytes->isData() ? bytes : std::nullopt;
        }
        case ArchivedKind::Array: {
            std::optional<Array> items = decodeReferenceList(object, "NS.objects", depth);
            return items ? std::optional<Value>(std::move(*items)) : std::nullopt;
        }
        case ArchivedKind::Dictionary:
            return decodeDictionary(object, depth);
    }
    return std::nullopt;
}

std::optional<Value> TVKKeyedArchiveDecoder::decodeMember(const Dictionary& object, const char* key,
                                                          int depth) {
    auto member = object.find(key);
    if (member == object.end()) {
        return std::nullopt;
    }
    if (uidOf(member->second)) {
        return decodeReference(member->second, depth + 1);
    }
    return member->second;
}

std::optional<Array> TVKKeyedArchiveDecoder::decodeReferenceList(const Dictionary& object,
                                                                 const char* key, int depth) {
    auto list = object.find(key);
    if (list == object.end() || !list->second.isArray()) {
        return std::nullopt;
    }
    Array items;
    for (const Value& reference : *list->second.asArray()) {
        std::optional<Value> item = decodeReference(reference, depth + 1);
        // A collection cannot hold nil.
        if (!item || item->isNull()) {
            return std::nullopt;
        }
        items.push_back(std::move(*item));
    }
    return items;
}

std::optional<Value> TVKKeyedArchiveDecoder::decodeDictionary(const Dictionary& object, int depth) {
    std::optional<Array> keys = decodeReferenceList(object, "NS.keys", depth);
    std::optional<Array> values = decodeReferenceList(object, "NS.objects", depth);
    if (!keys || !values || keys->size() != values->size()) {
        return std::nullopt;
    }
    Dictionary dictionary;
    for (std::size_t i = 0; i < keys->size(); ++i) {
        const Value& key = (*keys)[i];
        dictionary[key.isString() ? *key.asString() : key.description()] = std::move((*values)[i]);
    }
    return dictionary;
}

}  // namespace tarvik
