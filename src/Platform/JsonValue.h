#pragma once

#include <tarvik/Value.h>

#include <optional>
#include <string>

namespace tarvik::json {

// Arrays and objects nested deeper than this are no document the SDK reads: a deeper one is
// refused rather than built.
constexpr int kMaxNesting = 256;

// True only for an array or dictionary whose contents are all JSON-compatible.
bool isValidJSONObject(const Value& value);

// Compact JSON text (no spaces or newlines), object members in the dictionary's order; none when
// the value holds a date, data or a non-finite number, which JSON cannot carry.
std::optional<std::string> compactText(const Value& value);

// Parses JSON text, object members in the document's order; none when it is not JSON or nests
// arrays and objects more than kMaxNesting deep.
std::optional<Value> parse(std::string_view text);
// A document as an answer's body carries it: an object or an array at the top; none for
// anything else, a bare string or number included.
std::optional<Value> parseDocument(const Data& bytes);

}  // namespace tarvik::json
