#include "Helpers/UIApplication+Tarvik.h"

#include "Platform/Runtime.h"

namespace tarvik {

std::optional<Image> tarvik_appIcon() {
    Bundle bundle = Runtime::current().platform().mainBundle();
    const Dictionary& info = bundle.infoDictionary();
    auto icons = info.find("CFBundleIcons");
    if (icons == info.end()) {
        return std::nullopt;
    }
    // Value::find answers null for a missing key and for a value that is not a dictionary.
    const Value* primaryIcon = icons->second.find("CFBundlePrimaryIcon");
    const Value* iconFiles =
        primaryIcon != nullptr ? primaryIcon->find("CFBundleIconFiles") : nullptr;
    if (iconFiles == nullptr || !iconFiles->isArray() || iconFiles->asArray()->empty()) {
        return std::nullopt;
    }
    const std::string* firstIconFile = iconFiles->asArray()->front().asString();
    if (firstIconFile == nullptr) {
        return std::nullopt;
    }
    return Image::imageNamed(*firstIconFile, bundle);
}

}  // namespace tarvik
