#include "DisplayJson.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace tarvik::tool {

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
            return fmt::format("{:%Y-%m-%dT%H:%M:%S}Z",
                               std::chrono::floor<std::chrono::seconds>(*value.asDate()));
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
