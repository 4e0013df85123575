#pragma once

#include <string>

namespace tarvik {

// The system console: one line at a time to standard error.
class Console {
  public:
    virtual ~Console() = default;
    // Writes the text and a newline as one write, so lines from different threads never mix.
    virtual void writeLine(const std::string& text) = 0;
};

}  // namespace tarvik
