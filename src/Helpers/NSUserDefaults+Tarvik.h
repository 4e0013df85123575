#pragma once

#include <tarvik/Value.h>

namespace tarvik {

// A readable copy of the host application's own defaults domain (named by its bundle
// identifier): JSON-compatible arrays and dictionaries as they are, everything else as text.
Dictionary tarvik_userDefaults();

}  // namespace tarvik
