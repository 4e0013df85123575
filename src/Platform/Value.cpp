#include <tarvik/Value.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <stdexcept>

namespace tarvik {

namespace {

std::string indentation(int level) {
    return std::string(static_cast<size_t>(level) * 4, ' ');
}

bool needsQuotes(const std::string& text) {
    if (text.empty()) {
        return true;
    }
    for (unsigned char c : text) {
        bool plain = std::isalnum(c) || c == '_' || c == '$' || c == '+' || c == '/' || c == ':' ||
                     c == '.' || c == '-';
        if (!plain || c >= 0x80) {
            return true;
        }
    }
    return false;
}

// Decodes one UTF-8 sequence starting at text[i]; invalid bytes decode as themselves.
char32_t decodeUtf8(const std::string& text, size_t& i) {
    auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char lead = byte(i);
    size_t extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    if (extra == 0 || i + extra >= text.size()) {
        ++i;
        return lead;
    }
    char32_t code = lead & (0x3F >> extra);
    for (size_t k = 1; k <= extra; ++k) {
        code = (code << 6) | (byte(i + k) & 0x3F);
    }
    i += extra + 1;
    return code;
}

// A string as it appears inside a collection description: quoted and escaped when it holds
// anything but plain characters, non-ASCII letters as \Uxxxx UTF-16 escapes.
std::string quotedForCollection(const std::string& text) {
    if (!needsQuotes(text)) {
        return text;
    }
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        char32_t c = decodeUtf8(text, i);
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                if (c < 0x20 || c >= 0x7F) {
                    if (c >= 0x10000) {
                        char32_t v = c - 0x10000;
                        out += fmt::format("\\U{:04x}\\U{:04x}", 0xD800 + (v >> 10),
                                           0xDC00 + (v & 0x3FF));
                    } else {
                        out += fmt::format("\\U{:04x}", static_cast<unsigned>(c));
                    }
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

std::string dateDescription(const Date& date) {
    auto seconds = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
    std::time_t t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buffer[64];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S +0000", &tm);
    return buffer;
}

std::string hexGroups(const Data& data, size_t from, size_t to) {
    std::string out;
    for (size_t i = from; i < to; ++i) {
        if (i > from && (i - from) % 4 == 0) {
            out += ' ';
        }
        out += fmt::format("{:02x}", data[i]);
    }
    return out;
}

std::string dataDescription(const Data& data) {
    if (data.size() <= 24) {
        return fmt::format("{{length = {}, bytes = 0x{}}}", data.size(),
                           hexGroups(data, 0, data.size()));
    }
    // Long data shows its head and its tail only.
    return fmt::format("{{length = {}, bytes = 0x{} ... {} }}", data.size(), hexGroups(data, 0, 16),
                       hexGroups(data, data.size() - 8, data.size()));
}

std::string describe(const Value& value, int level, bool insideCollection) {
    switch (value.type()) {
        case Value::Type::Null:
            return "<null>";
        case Value::Type::Bool:
            return *value.asBool() ? "1" : "0";
        case Value::Type::Integer:
            return std::to_string(*value.asInteger());
        case Value::Type::Real:
            return numberDescription(*value.asReal());
        case Value::Type::String:
            return insideCollection ? quotedForCollection(*value.asString()) : *value.asString();
        case Value::Type::Date: {
            std::string text = dateDescription(*value.asDate());
            return insideCollection ? quotedForCollection(text) : text;
        }
        case Value::Type::Data:
            return dataDescription(*value.asData());
        case Value::Type::Array: {
            const Array& array = *value.asArray();
            std::string out = indentation(level) + "(\n";
            for (size_t i = 0; i < array.size(); ++i) {
                out += indentation(level + 1) + describe(array[i], level + 1, true);
                out += i + 1 < array.size() ? ",\n" : "\n";
            }
            return out + indentation(level) + ")";
        }
        case Value::Type::Dictionary: {
            // A description lists the keys sorted, whatever order the dictionary keeps.
            std::vector<const Dictionary::value_type*> members;
            for (const auto& member : *value.asDictionary()) {
                members.push_back(&member);
            }
            std::sort(members.begin(), members.end(),
                      [](auto* a, auto* b) { return a->first < b->first; });
            std::string out = indentation(level) + "{\n";
            for (const auto* member : members) {
                out += indentation(level + 1) + quotedForCollection(member->first) + " = " +
                       describe(member->second, level + 1, true) + ";\n";
            }
            return out + indentation(level) + "}";
        }
    }
    return {};
}

}  // namespace

std::string numberDescription(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    if (std::isinf(value)) {
        return value > 0 ? "inf" : "-inf";
    }
    // Integral values within the exact range print without exponent, as a number object does.
    if (value == std::trunc(value) && std::fabs(value) < 1e17) {
        return fmt::format("{:.0f}", value);
    }
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

Dictionary::Dictionary(std::initializer_list<value_type> members) {
    for (const value_type& member : members) {
        insert(member);
    }
}

Dictionary::Dictionary(const Dictionary& other) : entries_(other.entries_) {
    rebuildIndex();
}

Dictionary& Dictionary::operator=(const Dictionary& other) {
    if (this != &other) {
        // Members cannot be assigned over (their keys are constant): the copy replaces them.
        *this = Dictionary(other);
    }
    return *this;
}

Dictionary::~Dictionary() = default;

void Dictionary::rebuildIndex() {
    index_.clear();
    index_.reserve(entries_.size());
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
        index_.emplace(it->first, it);
    }
}

Dictionary::iterator Dictionary::find(std::string_view key) {
    auto found = index_.find(key);
    return found == index_.end() ? entries_.end() : found->second;
}

Dictionary::const_iterator Dictionary::find(std::string_view key) const {
    auto found = index_.find(key);
    return found == index_.end() ? entries_.end() : const_iterator(found->second);
}

Value& Dictionary::at(std::string_view key) {
    auto it = find(key);
    if (it == end()) {
        throw std::out_of_range("Dictionary::at: no such key");
    }
    return it->second;
}

const Value& Dictionary::at(std::string_view key) const {
    auto it = find(key);
    if (it == end()) {
        throw std::out_of_range("Dictionary::at: no such key");
    }
    return it->second;
}

Value& Dictionary::operator[](std::string_view key) {
    return emplace(key).first->second;
}

std::pair<Dictionary::iterator, bool> Dictionary::insert(value_type member) {
    return emplace(member.first, std::move(member.second));
}

Dictionary::size_type Dictionary::erase(std::string_view key) {
    auto found = index_.find(key);
    if (found == index_.end()) {
        return 0;
    }
    iterator position = found->second;
    index_.erase(found);
    entries_.erase(position);
    return 1;
}

Dictionary::iterator Dictionary::erase(const_iterator position) {
    index_.erase(std::string_view(position->first));
    return entries_.erase(position);
}

void Dictionary::clear() {
    index_.clear();
    entries_.clear();
}

bool operator==(const Dictionary& a, const Dictionary& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (const auto& [key, value] : a) {
        auto other = b.find(key);
        if (other == b.end() || !(other->second == value)) {
            return false;
        }
    }
    return true;
}

bool Value::boolValue() const {
    if (auto b = asBool()) {
        return *b;
    }
    if (auto i = asInteger()) {
        return *i != 0;
    }
    if (auto d = asReal()) {
        return *d != 0;
    }
    return false;
}

std::int64_t Value::integerValue() const {
    if (auto b = asBool()) {
        return *b ? 1 : 0;
    }
    if (auto i = asInteger()) {
        return *i;
    }
    if (auto d = asReal()) {
        return std::isfinite(*d) ? static_cast<std::int64_t>(*d) : 0;
    }
    return 0;
}

double Value::doubleValue() const {
    if (auto d = asReal()) {
        return *d;
    }
    return static_cast<double>(integerValue());
}

const Value* Value::find(const std::string& key) const {
    const Dictionary* dictionary = asDictionary();
    if (!dictionary) {
        return nullptr;
    }
    auto it = dictionary->find(key);
    return it == dictionary->end() ? nullptr : &it->second;
}

std::string Value::description() const {
    return describe(*this, 0, false);
}

}  // namespace tarvik
