#pragma once

#include <tarvik/Value.h>

#include <nlohmann/json.hpp>

namespace tarvik::tool {

// JSON for people to read: dates become ISO 8601 text in UTC, data becomes
// "<N bytes>" and every other value is as JSON has it.
nlohmann::json displayJson(const Value& value);

}  // namespace tarvik::tool
