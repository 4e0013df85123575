#include "Platform/Linux/GettextLocalization.h"

#include <libintl.h>

namespace tarvik {

std::optional<std::string> GettextLocalization::translationForKey(const std::string& key) const {
    std::optional<std::string> domain;
    {
        std::lock_guard lock(mutex_);
        domain = domain_;
    }
    const char* msgid = key.c_str();
    const char* translated = domain ? dgettext(domain->c_str(), msgid) : gettext(msgid);
    // gettext hands back the very pointer it was given when the catalogue has no entry.
    if (translated == msgid) {
        return std::nullopt;
    }
    return std::string(translated);
}

void GettextLocalization::setTextDomain(std::optional<std::string> domain) {
    std::lock_guard lock(mutex_);
    domain_ = std::move(domain);
}

}  // namespace tarvik
