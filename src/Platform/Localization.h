#pragma once

#include <optional>
#include <string>

namespace tarvik {

// The host application's translations of the reporter's texts, keyed by their English text.
// Answered on any thread.
class Localization {
  public:
    virtual ~Localization() = default;
    // The host's translation of `key`, or none when it has none.
    virtual std::optional<std::string> translationForKey(const std::string& key) const = 0;
};

}  // namespace tarvik
