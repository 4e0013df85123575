#pragma once

#include <tarvik/Value.h>

namespace tarvik {

// A readable copy of the host application's own defaults domain (named by its bundle
// identifier): JSON-compatible arrays and dictionaries as they are, everything else as text.
// Data of 50000 bytes or more reads "NSData - <length> bytes"; smaller data is decoded as a
// keyed archive and shown as its object's description or, when it is no keyed archive the SDK
// can read, as the data's own description. An archive of nil leaves its key out.
Dictionary tarvik_userDefaults();

}  // namespace tarvik
