#pragma once

#include "Platform/Image.h"

#include <optional>

namespace tarvik {

// The host application's icon: the first of the main bundle's "CFBundleIcons" →
// "CFBundlePrimaryIcon" → "CFBundleIconFiles", loaded by name from the bundle. None when a key
// is missing or of another kind, the list is empty, or no such image loads.
std::optional<Image> tarvik_appIcon();

}  // namespace tarvik
