#pragma once

#include "Platform/Localization.h"

#include <mutex>
#include <optional>
#include <string>

namespace tarvik {

// Translations from the host's gettext catalogue: the text domain the host names, or else the
// process's current one (what `textdomain` was last given, "messages" by default).
class GettextLocalization : public Localization {
  public:
    std::optional<std::string> translationForKey(const std::string& key) const override;
    void setTextDomain(std::optional<std::string> domain);

  private:
    mutable std::mutex mutex_;
    std::optional<std::string> domain_;
};

}  // namespace tarvik
