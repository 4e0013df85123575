#pragma once

#include <string>
#include <string_view>

namespace tarvik {

bool isValidUtf8(std::string_view text);

// The text in Unicode canonical decomposed form (NFD). Text that is not valid UTF-8 is
// returned unchanged.
std::string decomposedUtf8(std::string_view text);

}  // namespace tarvik
