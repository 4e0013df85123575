#pragma once

#include <tarvik/Value.h>

#include <string>
#include <vector>

namespace tarvik::testsupport {

// Property lists written by Python's plistlib, a writer independent of the SDK. Each expression
// is Python source evaluated with `UID`, `datetime` and three helpers in scope:
//   archive(objects, root=UID(1))  a keyed archive: "$archiver" = "NSKeyedArchiver",
//                                  "$version" = 100000, "$top" = {"root": root}, "$objects"
//   cls(name, *superclasses)       a class entry: {"$classname": name, "$classes": [...]}
//   nested(levels, leaf)           `leaf` inside `levels` plain arrays
// `format` is "FMT_BINARY" or "FMT_XML". Empty, with a test failure, when Python fails.
std::vector<Data> pythonPropertyLists(const std::vector<std::string>& expressions,
                                      const std::string& format = "FMT_BINARY");

}  // namespace tarvik::testsupport
