#include "Kit/NSAttributedString.h"

#include <algorithm>

namespace tarvik {

void TextAttributes::merge(const TextAttributes& other) {
    if (other.font) {
        font = other.font;
    }
    if (other.foregroundColor) {
        foregroundColor = other.foregroundColor;
    }
    if (other.alignment) {
        alignment = other.alignment;
    }
}

NSAttributedString::NSAttributedString(std::string string, const TextAttributes& attributes)
    : string_(std::move(string)), length_(utf16Length(string_)) {
    addAttributes(attributes, {0, length_});
}

void NSAttributedString::addAttributes(const TextAttributes& attributes, NSRange range) {
    const std::size_t location = std::min(range.location, length_);
    const NSRange clamped{location, std::min(range.end(), length_) - location};
    if (clamped.length == 0 || attributes == TextAttributes{}) {
        return;
    }
    runs_.push_back({clamped, attributes});
}

TextAttributes NSAttributedString::attributesAtIndex(std::size_t index) const {
    TextAttributes attributes;
    for (const Run& run : runs_) {
        if (index >= run.range.location && index < run.range.end()) {
            attributes.merge(run.attributes);
        }
    }
    return attributes;
}

}  // namespace tarvik
