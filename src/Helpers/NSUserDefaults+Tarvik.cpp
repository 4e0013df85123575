#include "Helpers/NSUserDefaults+Tarvik.h"

#include "Helpers/TVKKeyedArchiveDecoder.h"
#include "Platform/JsonValue.h"
#include "Platform/Runtime.h"

#include <fmt/format.h>

#include <optional>

namespace tarvik {

namespace {

// Data this large is only summarised: decoding and describing it would cost more than a
// submission's defaults file is worth.
constexpr std::size_t kLargestDecodedDataLength = 50000;

// What a submission shows for one defaults value; none drops the key.
std::optional<Value> readableValue(const Value& value) {
    if (json::isValidJSONObject(value)) {
        return value;
    }
    const Data* data = value.asData();
    if (!data) {
        return value.description();
    }
    if (data->size() >= kLargestDecodedDataLength) {
        return fmt::format("NSData - {} bytes", data->size());
    }
    std::optional<Value> decoded = TVKKeyedArchiveDecoder::decodeRootObject(*data);
    if (!decoded) {
        // Not a keyed archive the SDK can read: show the bytes themselves.
        return value.description();
    }
    if (decoded->isNull()) {
        // An archived nil has no description.
        return std::nullopt;
    }
    return decoded->description();
}

}  // namespace

Dictionary tarvik_userDefaults() {
    Platform& platform = Runtime::current().platform();
    std::optional<std::string> identifier = platform.mainBundle().bundleIdentifier();
    if (!identifier) {
        return {};
    }
    // Only the application's own domain: registered and global defaults are not its data.
    std::optional<Dictionary> domain = platform.userDefaults().persistentDomainForName(*identifier);
    if (!domain) {
        return {};
    }
    Dictionary readable;
    for (const auto& [key, value] : *domain) {
        if (std::optional<Value> shown = readableValue(value)) {
            readable.emplace(key, std::move(*shown));
        }
    }
    return readable;
}

}  // namespace tarvik
