#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace tarvik {

using Date = std::chrono::system_clock::time_point;
using Data = std::vector<std::uint8_t>;

class Value;
using Array = std::vector<Value>;

// String keys to values, enumerated in the order the keys were first inserted: the SDK sends
// and writes a dictionary's members in the order it built them (an event's fields, for one),
// and a dictionary read from a property list or JSON keeps the order of the document. Offers the
// part of the map interface the SDK uses; lookups go through a hash index. Two dictionaries are
// equal when they hold the same keys with equal values, whatever their order.
class Dictionary {
  public:
    using key_type = std::string;
    using mapped_type = Value;
    using value_type = std::pair<const std::string, Value>;
    using size_type = std::size_t;

  private:
    using Entries = std::list<value_type>;

  public:
    using iterator = Entries::iterator;
    using const_iterator = Entries::const_iterator;

    Dictionary() = default;
    Dictionary(std::initializer_list<value_type> members);
    Dictionary(const Dictionary& other);
    Dictionary(Dictionary&& other) noexcept = default;
    Dictionary& operator=(const Dictionary& other);
    Dictionary& operator=(Dictionary&& other) noexcept = default;
    ~Dictionary();

    iterator begin() { return entries_.begin(); }
    iterator end() { return entries_.end(); }
    const_iterator begin() const { return entries_.begin(); }
    const_iterator end() const { return entries_.end(); }
    size_type size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }

    iterator find(std::string_view key);
    const_iterator find(std::string_view key) const;
    size_type count(std::string_view key) const { return index_.count(key); }
    bool contains(std::string_view key) const { return index_.count(key) != 0; }
    // The member for `key`; throws std::out_of_range when there is none.
    Value& at(std::string_view key);
    const Value& at(std::string_view key) const;

    // A new key goes to the end; an existing key keeps its place.
    Value& operator[](std::string_view key);
    std::pair<iterator, bool> insert(value_type member);
    template <typename V>
    std::pair<iterator, bool> insert_or_assign(std::string_view key, V&& value);
    template <typename... Args>
    std::pair<iterator, bool> emplace(std::string_view key, Args&&... args);

    size_type erase(std::string_view key);
    iterator erase(const_iterator position);
    void clear();

    friend bool operator==(const Dictionary& a, const Dictionary& b);

  private:
    void rebuildIndex();

    Entries entries_;
    // Views into the keys of `entries_`, whose nodes never move.
    std::unordered_map<std::string_view, iterator> index_;
};

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

template <typename V>
std::pair<Dictionary::iterator, bool> Dictionary::insert_or_assign(std::string_view key,
                                                                   V&& value) {
    if (auto it = find(key); it != end()) {
        it->second = std::forward<V>(value);
        return {it, false};
    }
    return emplace(key, std::forward<V>(value));
}

template <typename... Args>
std::pair<Dictionary::iterator, bool> Dictionary::emplace(std::string_view key, Args&&... args) {
    if (auto it = find(key); it != end()) {
        return {it, false};
    }
    auto it = entries_.emplace(entries_.end(), std::piecewise_construct, std::forward_as_tuple(key),
                               std::forward_as_tuple(std::forward<Args>(args)...));
    index_.emplace(it->first, it);
    return {it, true};
}

// The number text used wherever a number is written with "%@": integers in decimal, booleans
// as 1 and 0, reals as the shortest decimal text that reads back as the same value.
std::string numberDescription(double value);

}  // namespace tarvik
