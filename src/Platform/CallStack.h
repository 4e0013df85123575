#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tarvik {

// The calling thread's stack, innermost frame first, without the `framesToSkip` innermost
// frames (this function's own frame is never included). One line per frame:
//   "3   libexample.so                       0x00007f3a2c1d4e10 example::run() + 42"
// index (padded to 4), image name (padded to 36), address, symbol and offset into it. A frame
// whose symbol is unknown names the image's load address instead.
std::vector<std::string> callStackSymbols(std::size_t framesToSkip = 0);

}  // namespace tarvik
