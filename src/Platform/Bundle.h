#pragma once

#include <tarvik/Value.h>

#include <optional>
#include <string>

namespace tarvik {

// A bundle: a folder with an information dictionary and resources.
class Bundle {
  public:
    Bundle(std::string bundlePath, Dictionary infoDictionary, std::string resourcePath)
        : bundlePath_(std::move(bundlePath)),
          infoDictionary_(std::move(infoDictionary)),
          resourcePath_(std::move(resourcePath)) {}

    const std::string& bundlePath() const { return bundlePath_; }
    const std::string& resourcePath() const { return resourcePath_; }
    const Dictionary& infoDictionary() const { return infoDictionary_; }

    // The value of a string entry of the information dictionary.
    std::optional<std::string> stringForInfoKey(const std::string& key) const {
        auto it = infoDictionary_.find(key);
        if (it == infoDictionary_.end() || !it->second.isString()) {
            return std::nullopt;
        }
        return *it->second.asString();
    }
    std::optional<std::string> bundleIdentifier() const {
        return stringForInfoKey("CFBundleIdentifier");
    }

  private:
    std::string bundlePath_;
    Dictionary infoDictionary_;
    std::string resourcePath_;
};

}  // namespace tarvik
