#pragma once

#include <tarvik/Value.h>

#include <optional>
#include <string>
#include <string_view>

namespace tarvik::plist {

// Reads an XML or binary property list; none when the bytes are not one, nest more than 256
// arrays and dictionaries deep, hold a container inside itself, or share objects that expand to
// more than about a million values.
std::optional<Value> parse(std::string_view bytes);
std::optional<Value> readFile(const std::string& path);
// Like parse, but each UID (the object references of a keyed archive) becomes a dictionary
// {"CF$UID": n}, as an XML property list writes it, instead of a plain number.
std::optional<Value> parseKeepingUIDs(std::string_view bytes);

// Serialises a value; none when it holds something a property list cannot (a null).
std::optional<std::string> toXml(const Value& value);
std::optional<Data> toBinary(const Value& value);

// Writes a binary property list through a temporary file renamed over `path`, so that a
// reader never sees half a file. False when the value cannot be written or the write failed.
bool writeFileAtomically(const Value& value, const std::string& path);

}  // namespace tarvik::plist
