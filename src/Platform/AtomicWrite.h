#pragma once

#include <string>
#include <string_view>

namespace tarvik {

// Writes bytes to a temporary file in the same folder and renames it over `path`, so that a
// reader sees the old file or the new one, never half of one.
bool writeBytesAtomically(std::string_view bytes, const std::string& path);

}  // namespace tarvik
