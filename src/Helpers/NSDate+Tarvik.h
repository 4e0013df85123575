#pragma once

#include <tarvik/Value.h>

#include <string>

namespace tarvik {

// The date as submissions carry it: "yyyy-MM-dd'T'HH:mm:ssZ" in GMT, so the offset always reads
// +0000 (2020-01-01T00:00:00+0000). Fractions of a second are dropped.
std::string tarvik_ios8601Representation(Date date);

}  // namespace tarvik
