#include "Platform/JsonValue.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <vector>

namespace tarvik::json {

namespace {

// Writes members in the dictionary's order.
using OrderedJson = nlohmann::ordered_json;

std::optional<OrderedJson> toJson(const Value& value) {
    switch (value.type()) {
        case Value::Type::Null:
            return OrderedJson(nullptr);
        case Value::Type::Bool:
            return OrderedJson(*value.asBool());
        case Value::Type::Integer:
            return OrderedJson(*value.asInteger());
        case Value::Type::Real:
            if (!std::isfinite(*value.asReal())) {
                return std::nullopt;
            }
            return OrderedJson(*value.asReal());
        case Value::Type::String:
            return OrderedJson(*value.asString());
        case Value::Type::Date:
        case Value::Type::Data:
            return std::nullopt;
        case Value::Type::Array: {
            OrderedJson array = OrderedJson::array();
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
            OrderedJson object = OrderedJson::object();
            // A dictionary's keys are unique already: members are appended without the
            // member-by-member search the object's own insertion makes.
            auto& members = static_cast<OrderedJson::object_t::Container&>(
                object.get_ref<OrderedJson::object_t&>());
            for (const auto& [key, item] : *value.asDictionary()) {
                auto converted = toJson(item);
                if (!converted) {
                    return std::nullopt;
                }
                members.emplace_back(key, std::move(*converted));
            }
            return object;
        }
    }
    return std::nullopt;
}

// Builds the value while the parser reads, one container per open array or object on an
// explicit stack, so that neither reading nor converting recurses however deep the text nests.
class ValueBuilder : public nlohmann::json_sax<nlohmann::json> {
  public:
    bool null() override { return add(Value()); }
    bool boolean(bool value) override { return add(Value(value)); }
    bool number_integer(number_integer_t value) override { return add(Value(value)); }
    bool number_unsigned(number_unsigned_t value) override {
        return add(Value(static_cast<std::int64_t>(value)));
    }
    bool number_float(number_float_t value, const string_t&) override { return add(Value(value)); }
    bool string(string_t& value) override { return add(Value(std::move(value))); }
    bool binary(binary_t& value) override { return add(Value(Data(value.begin(), value.end()))); }
    bool start_object(std::size_t) override { return open(Dictionary()); }
    bool key(string_t& key) override {
        open_.back().key = std::move(key);
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(Array()); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }

    std::optional<Value> result() { return std::move(root_); }

  private:
    struct Container {
        Value value;
        std::string key;  // the member name an object's next value goes under
    };

    bool open(Value container) {
        if (open_.size() >= static_cast<size_t>(kMaxNesting)) {
            return false;
        }
        open_.push_back({std::move(container), {}});
        return true;
    }

    bool close() {
        Value finished = std::move(open_.back().value);
        open_.pop_back();
        return add(std::move(finished));
    }

    bool add(Value value) {
        if (open_.empty()) {
            root_ = std::move(value);
        } else if (Array* array = open_.back().value.asArray()) {
            array->push_back(std::move(value));
        } else {
            (*open_.back().value.asDictionary())[open_.back().key] = std::move(value);
        }
        return true;
    }

    std::vector<Container> open_;
    std::optional<Value> root_;
};

}  // namespace

bool isValidJSONObject(const Value& value) {
    return (value.isArray() || value.isDictionary()) && toJson(value).has_value();
}

std::optional<std::string> compactText(const Value& value) {
    auto json = toJson(value);
    if (!json) {
        return std::nullopt;
    }
    return json->dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
}

std::optional<Value> parse(std::string_view text) {
    ValueBuilder builder;
    if (!nlohmann::json::sax_parse(text, &builder)) {
        return std::nullopt;
    }
    return builder.result();
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
