#pragma once

#include <tarvik/Value.h>

#include <nlohmann/json.hpp>

#include <string>

namespace tarvik::tool {

// "yyyy-MM-ddTHH:mm:ssZ", the date in UTC whatever the machine's time zone.
std::string utcDateText(Date date);

// JSON for people to read: dates become ISO 8601 text in UTC, data becomes
// "<N bytes>" and every other value is as JSON has it.
nlohmann::json displayJson(const Value& value);

}  // namespace tarvik::tool
