#pragma once

#include <cstddef>
#include <string_view>

namespace tarvik::plist {

// The property-list library reads nested arrays and dictionaries by recursion and expands every
// shared object of a binary list in place. Before bytes from outside the SDK reach it, this
// check tells whether they stay within what can be read safely: no more than `maxNesting`
// arrays and dictionaries inside one another, no container that contains itself, and (binary
// lists) no more values once shared objects are expanded than the larger of `maxValues` and
// the list's own object count. It reads the bytes without recursion. Bytes that are neither
// flavour pass; bytes it cannot follow in a binary list fail.
bool withinNesting(std::string_view bytes, int maxNesting, std::size_t maxValues);

}  // namespace tarvik::plist
