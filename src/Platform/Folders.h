#pragma once

#include <string>

namespace tarvik {

// The user-domain folders the SDK keeps its files in. Paths carry no trailing slash.
class Folders {
  public:
    virtual ~Folders() = default;
    virtual std::string cachesDirectory() const = 0;
    virtual std::string applicationSupportDirectory() const = 0;
    virtual std::string documentsDirectory() const = 0;
    virtual std::string temporaryDirectory() const = 0;
};

}  // namespace tarvik
