#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tarvik {

using Date = std::chrono::system_clock::time_point;
using Data = std::vector<std::uint8_t>;

class Value;
using Array = std::vector<Value>;
// Keys are kept sorted so that every serialisation of a dictionary is reproducible.
using Dictionary = std::map<std::string, Value>;

// A property-list / JSON value: null, bool, integer, real, string, date, data, array or
// dictionary. Booleans and integers are distinct kinds and never turn into each other when
// converted to and from property lists or JSON.
class Value {
  public:
    enum class Type { Null, Bool, Integer, Real, String, Date, Data, Array, Dictionary };

    Value() = default;
    Value(std::nullptr_t) {}
    Value(bool b) : storage_(b) {}
    Value(int i) : storage_(std::int64_t{i}) {}
    Value(long i) : storage_(std::int64_t{i}) {}
    Value(long long i) : storage_(std::int64_t{i}) {}
    Value(unsigned i) : storage_(std::int64_t{i}) {}
    Value(unsigned long i) : storage_(static_cast<std::int64_t>(i)) {}
    Value(unsigned long long i) : storage_(static_cast<std::int64_t>(i)) {}
    Value(double d) : storage_(d) {}
    Value(const char* s) : storage_(std::string(s)) {}
    Value(std::string s) : storage_(std::move(s)) {}
    Value(std::string_view s) : storage_(std::string(s)) {}
    Value(tarvik::Date d) : storage_(d) {}
    Value(tarvik::Data d) : storage_(std::move(d)) {}
    Value(tarvik::Array a) : storage_(std::move(a)) {}
    Value(tarvik::Dictionary d) : storage_(std::move(d)) {}

    Type type() const { return static_cast<Type>(storage_.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isBool() const { return type() == Type::Bool; }
    bool isInteger() const { return type() == Type::Integer; }
    bool isReal() const { return type() == Type::Real; }
    bool isNumber() const { return isBool() || isInteger() || isReal(); }
    bool isString() const { return type() == Type::String; }
    bool isDate() const { return type() == Type::Date; }
    bool isData() const { return type() == Type::Data; }
    bool isArray() const { return type() == Type::Array; }
    bool isDictionary() const { return type() == Type::Dictionary; }

    // Typed access; nullptr when the value is of another kind.
    const bool* asBool() const { return std::get_if<bool>(&storage_); }
    const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&storage_); }
    const double* asReal() const { return std::get_if<double>(&storage_); }
    const std::string* asString() const { return std::get_if<std::string>(&storage_); }
    const tarvik::Date* asDate() const { return std::get_if<tarvik::Date>(&storage_); }
    const tarvik::Data* asData() const { return std::get_if<tarvik::Data>(&storage_); }
    const tarvik::Array* asArray() const { return std::get_if<tarvik::Array>(&storage_); }
    const tarvik::Dictionary* asDictionary() const {
        return std::get_if<tarvik::Dictionary>(&storage_);
    }
    tarvik::Array* asArray() { return std::get_if<tarvik::Array>(&storage_); }
    tarvik::Dictionary* asDictionary() { return std::get_if<tarvik::Dictionary>(&storage_); }

    // Number conversions as a number object gives them: booleans are 1 and 0, reals are
    // truncated towards zero; anything that is not a number gives false or 0.
    bool boolValue() const;
    std::int64_t integerValue() const;
    double doubleValue() const;

    // Dictionary member, or nullptr when this is not a dictionary or has no such key.
    const Value* find(const std::string& key) const;

    // The text the platform's object description gives: strings as they are, numbers in their
    // shortest form (booleans 1 and 0), dates as "2001-01-01 00:00:00 +0000", data as
    // "{length = N, bytes = 0x...}", arrays and dictionaries in the nested parenthesised form.
    std::string description() const;

    friend bool operator==(const Value& a, const Value& b) { return a.storage_ == b.storage_; }

  private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, tarvik::Date,
                 tarvik::Data, tarvik::Array, tarvik::Dictionary>
        storage_;
};

// The number text used wherever a number is written with "%@": integers in decimal, booleans
// as 1 and 0, reals as the shortest decimal text that reads back as the same value.
std::string numberDescription(double value);

}  // namespace tarvik
