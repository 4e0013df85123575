#include "Helpers/NSBundle+Tarvik.h"

#include "Platform/Runtime.h"

namespace tarvik {

Bundle tarvik_frameworkBundle() {
    return Runtime::current().platform().frameworkBundle();
}

std::string tarvik_localizedString(const std::string& key) {
    return Runtime::current().platform().localization().translationForKey(key).value_or(key);
}

}  // namespace tarvik
