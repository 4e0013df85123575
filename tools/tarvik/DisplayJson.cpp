#include "DisplayJson.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace tarvik::tool {

std::string utcDateText(Date date) {
    // fmt formats a time point in the local zone; the text says UTC, so convert first.
    std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}Z", fmt::gmtime(seconds));
}

nlohmann::json displayJson(const Value& value) {
    switch (value.type()) {
        case Value::Type::Null:
            return nullptr;
        case Value::Type::Bool:
            return *value.asBool();
        case Value::Type::Integer:
            return *value.asInteger();
        case Value::Type::Real:
            return *value.asReal();
        case Value::Type::String:
            return *value.asString();
        case Value::Type::Date:
            return utcDateText(*value.asDate());
        case Value::Type::Data:
            return fmt::format("<{} bytes>", value.asData()->size());
        case Value::Type::Array: {
            nlohmann::json array = nlohmann::json::array();
            for (const Value& item : *value.asArray()) {
                array.push_back(displayJson(item));
            }
            return array;
        }
        case Value::Type::Dictionary: {
            nlohmann::json object = nlohmann::json::object();
            for (const auto& [key, item] : *value.asDictionary()) {
                object[key] = displayJson(item);
            }
            return object;
        }
    }
    return nullptr;
}

}  // namespace tarvik::tool
