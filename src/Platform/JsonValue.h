#pragma once

#include <tarvik/Value.h>

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace tarvik::json {

// JSON for a value; none when it holds a date, data or a non-finite number, which JSON
// cannot carry.
std::optional<nlohmann::json> toJson(const Value& value);
Value fromJson(const nlohmann::json& json);

// True only for an array or dictionary whose contents are all JSON-compatible.
bool isValidJSONObject(const Value& value);

// Compact JSON text (no spaces or newlines); none when the value is not JSON-compatible.
std::optional<std::string> compactText(const Value& value);

// Parses JSON text; none when it is not JSON.
std::optional<Value> parse(std::string_view text);
// A document as an answer's body carries it: an object or an array at the top; none for
// anything else, a bare string or number included.
std::optional<Value> parseDocument(const Data& bytes);

}  // namespace tarvik::json
