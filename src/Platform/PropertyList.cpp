#include "Platform/PropertyList.h"

#include "Platform/AtomicWrite.h"
#include "Platform/PropertyListNesting.h"

#include <plist/plist.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>

namespace tarvik::plist {

namespace {

// Property-list dates count seconds from 2001-01-01T00:00:00Z.
constexpr std::int64_t kReferenceDateUnixSeconds = 978307200;

struct NodeDeleter {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using Node = std::unique_ptr<void, NodeDeleter>;

Node toNode(const Value& value) {
    switch (value.type()) {
        case Value::Type::Null:
            return nullptr;
        case Value::Type::Bool:
            return Node(plist_new_bool(*value.asBool() ? 1 : 0));
        case Value::Type::Integer:
            return Node(plist_new_uint(static_cast<std::uint64_t>(*value.asInteger())));
        case Value::Type::Real:
            return Node(plist_new_real(*value.asReal()));
        case Value::Type::String:
            return Node(plist_new_string(value.asString()->c_str()));
        case Value::Type::Date: {
            auto micros = std::chrono::duration_cast<std::chrono::microseconds>(
                              value.asDate()->time_since_epoch())
                              .count() -
                          kReferenceDateUnixSeconds * 1000000;
            auto seconds = static_cast<std::int32_t>(std::floor(micros / 1e6));
            auto rest = static_cast<std::int32_t>(micros - std::int64_t{seconds} * 1000000);
            return Node(plist_new_date(seconds, rest));
        }
        case Value::Type::Data: {
            const Data& data = *value.asData();
            return Node(plist_new_data(reinterpret_cast<const char*>(data.data()), data.size()));
        }
        case Value::Type::Array: {
            Node array(plist_new_array());
            for (const Value& item : *value.asArray()) {
                Node child = toNode(item);
                if (!child) {
                    return nullptr;
                }
                plist_array_append_item(array.get(), child.release());
            }
            return array;
        }
        case Value::Type::Dictionary: {
            Node dictionary(plist_new_dict());
            for (const auto& [key, item] : *value.asDictionary()) {
                Node child = toNode(item);
                if (!child) {
                    return nullptr;
                }
                plist_dict_set_item(dictionary.get(), key.c_str(), child.release());
            }
            return dictionary;
        }
    }
    return nullptr;
}

// Converting a list nests one call per level, as do the library's reader and writer; a list
// nested deeper than any the SDK or a host writes could exhaust a thread's stack, so such lists
// are refused before the library reads them, as are lists whose shared objects expand to more
// values than any such list holds.
constexpr int kMaxNesting = 256;
constexpr std::size_t kMaxExpandedValues = std::size_t{1} << 20;

// Keyed archives refer to their objects by UID. Plain readers take a UID as its number; a
// keyed-archive reader needs to tell references apart, so it gets them in the form an XML
// property list writes them in: a dictionary {"CF$UID": n}.
enum class UidForm { Number, Reference };

Value fromNode(plist_t node, UidForm uidForm) {
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            std::uint8_t b = 0;
            plist_get_bool_val(node, &b);
            return Value(b != 0);
        }
        case PLIST_UINT: {
            std::uint64_t u = 0;
            plist_get_uint_val(node, &u);
            return Value(static_cast<std::int64_t>(u));
        }
        case PLIST_REAL: {
            double d = 0;
            plist_get_real_val(node, &d);
            return Value(d);
        }
        case PLIST_STRING:
        case PLIST_KEY: {
            char* text = nullptr;
            plist_get_string_val(node, &text);
            std::string result = text ? text : "";
            std::free(text);
            return Value(std::move(result));
        }
        case PLIST_DATE: {
            std::int32_t seconds = 0, micros = 0;
            plist_get_date_val(node, &seconds, &micros);
            std::int64_t unixMicros =
                (std::int64_t{seconds} + kReferenceDateUnixSeconds) * 1000000 + micros;
            return Value(Date(
                std::chrono::duration_cast<Date::duration>(std::chrono::microseconds(unixMicros))));
        }
        case PLIST_DATA: {
            char* bytes = nullptr;
            std::uint64_t length = 0;
            plist_get_data_val(node, &bytes, &length);
            Data data(bytes, bytes + length);
            std::free(bytes);
            return Value(std::move(data));
        }
        case PLIST_ARRAY: {
            Array array;
            std::uint32_t count = plist_array_get_size(node);
            for (std::uint32_t i = 0; i < count; ++i) {
                array.push_back(fromNode(plist_array_get_item(node, i), uidForm));
            }
            return Value(std::move(array));
        }
        case PLIST_DICT: {
            Dictionary dictionary;
            plist_dict_iter it = nullptr;
            plist_dict_new_iter(node, &it);
            for (;;) {
                char* key = nullptr;
                plist_t item = nullptr;
                plist_dict_next_item(node, it, &key, &item);
                if (!item) {
                    std::free(key);
                    break;
                }
                dictionary[key ? key : ""] = fromNode(item, uidForm);
                std::free(key);
            }
            std::free(it);
            return Value(std::move(dictionary));
        }
        case PLIST_UID: {
            std::uint64_t uid = 0;
            plist_get_uid_val(node, &uid);
            Value number(static_cast<std::int64_t>(uid));
            if (uidForm == UidForm::Reference) {
                return Value(Dictionary{{"CF$UID", number}});
            }
            return number;
        }
        case PLIST_NONE:
            break;
    }
    return Value();
}

std::optional<Value> parseWithUidForm(std::string_view bytes, UidForm uidForm) {
    if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    if (!withinNesting(bytes, kMaxNesting, kMaxExpandedValues)) {
        return std::nullopt;
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    if (!root) {
        return std::nullopt;
    }
    Node owner(root);
    return fromNode(root, uidForm);
}

}  // namespace

std::optional<Value> parse(std::string_view bytes) {
    return parseWithUidForm(bytes, UidForm::Number);
}

std::optional<Value> parseKeepingUIDs(std::string_view bytes) {
    return parseWithUidForm(bytes, UidForm::Reference);
}

std::optional<Value> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return parse(bytes);
}

std::optional<std::string> toXml(const Value& value) {
    Node node = toNode(value);
    if (!node) {
        return std::nullopt;
    }
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(node.get(), &xml, &length);
    std::string result(xml, length);
    plist_to_xml_free(xml);
    return result;
}

std::optional<Data> toBinary(const Value& value) {
    Node node = toNode(value);
    if (!node) {
        return std::nullopt;
    }
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(node.get(), &bytes, &length);
    Data result(bytes, bytes + length);
    plist_to_bin_free(bytes);
    return result;
}

bool writeFileAtomically(const Value& value, const std::string& path) {
    std::optional<Data> bytes = toBinary(value);
    if (!bytes) {
        return false;
    }
    return writeBytesAtomically(
        std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()), path);
}

}  // namespace tarvik::plist
