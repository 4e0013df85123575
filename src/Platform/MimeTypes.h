#pragma once

#include <optional>
#include <string>

namespace tarvik {

// The MIME type of a file-name extension (case-insensitive, without the dot), from a fixed
// table of common types; none for an extension the table does not know.
std::optional<std::string> mimeTypeForExtension(const std::string& extension);

}  // namespace tarvik
