#include "Platform/JsonValue.h"

#include <cmath>

namespace tarvik::json {

std::optional<nlohmann::json> toJson(const Value& value) {
    switch (value.type()) {
        case Value::Type::Null:
            return nlohmann::json(nullptr);
        case Value::Type::Bool:
            return nlohmann::json(*value.asBool());
        case Value::Type::Integer:
            return nlohmann::json(*value.asInteger());
        case Value::Type::Real:
            if (!std::isfinite(*value.asReal())) {
                return std::nullopt;
            }
            return nlohmann::json(*value.asReal());
        case Value::Type::String:
            return nlohmann::json(*value.asString());
        case Value::Type::Date:
        case Value::Type::Data:
            return std::nullopt;
        case Value::Type::Array: {
            nlohmann::json array = nlohmann::json::array();
            for (const Value& item : *value.asArray()) {
                auto converted = toJson(item);
                if (!converted) {
                    return std::nullopt;
                }
                array.push_back(std::move(*converted));
            }
            return array;
        }
        case Value::Type::Dictionary: {
            nlohmann::json object = nlohmann::json::object();
            for (const auto& [key, item] : *value.asDictionary()) {
                auto converted = toJson(item);
                if (!converted) {
                    return std::nullopt;
                }
                object[key] = std::move(*converted);
            }
            return object;
        }
    }
    return std::nullopt;
}

Value fromJson(const nlohmann::json& json) {
    switch (json.type()) {
        case nlohmann::json::value_t::null:
        case nlohmann::json::value_t::discarded:
            return Value();
        case nlohmann::json::value_t::boolean:
            return Value(json.get<bool>());
        case nlohmann::json::value_t::number_integer:
            return Value(json.get<std::int64_t>());
        case nlohmann::json::value_t::number_unsigned:
            return Value(static_cast<std::int64_t>(json.get<std::uint64_t>()));
        case nlohmann::json::value_t::number_float:
            return Value(json.get<double>());
        case nlohmann::json::value_t::string:
            return Value(json.get<std::string>());
        case nlohmann::json::value_t::binary: {
            const auto& bytes = json.get_binary();
            return Value(Data(bytes.begin(), bytes.end()));
        }
        case nlohmann::json::value_t::array: {
            Array array;
            for (const auto& item : json) {
                array.push_back(fromJson(item));
            }
            return Value(std::move(array));
        }
        case nlohmann::json::value_t::object: {
            Dictionary dictionary;
            for (const auto& [key, item] : json.items()) {
                dictionary[key] = fromJson(item);
            }
            return Value(std::move(dictionary));
        }
    }
    return Value();
}

bool isValidJSONObject(const Value& value) {
    return (value.isArray() || value.isDictionary()) && toJson(value).has_value();
}

std::optional<std::string> compactText(const Value& value) {
    auto json = toJson(value);
    if (!json) {
        return std::nullopt;
    }
    return json->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<Value> parse(std::string_view text) {
    nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded()) {
        return std::nullopt;
    }
    return fromJson(json);
}

std::optional<Value> parseDocument(const Data& bytes) {
    std::optional<Value> document =
        parse(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    if (document && !document->isDictionary() && !document->isArray()) {
        return std::nullopt;
    }
    return document;
}

}  // namespace tarvik::json
