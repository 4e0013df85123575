#pragma once

#include <tarvik/Value.h>

#include <optional>
#include <string>

namespace tarvik {

// The host application's persistent defaults, one dictionary per domain name.
class UserDefaultsStore {
  public:
    virtual ~UserDefaultsStore() = default;
    virtual std::optional<Dictionary> persistentDomainForName(const std::string& name) const = 0;
    virtual void setPersistentDomain(const Dictionary& domain, const std::string& name) = 0;
};

}  // namespace tarvik
