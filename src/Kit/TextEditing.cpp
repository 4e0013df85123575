#include "Kit/TextEditing.h"

#include <algorithm>

namespace tarvik {

void TextEditing::setText(std::string text) {
    text_ = std::move(text);
    selection_ = {length(), 0};
}

std::size_t TextEditing::length() const {
    return utf16Length(text_);
}

void TextEditing::setSelectedRange(NSRange range) {
    const std::size_t location = std::min(range.location, length());
    selection_ = {location, std::min(range.end(), length()) - location};
}

// Index arithmetic goes through byte offsets, which never stop inside a character, so a
// surrogate pair is stepped over whole.
std::size_t TextEditing::characterStartBefore(std::size_t index) const {
    std::size_t offset = utf8OffsetOfUtf16Index(text_, index);
    if (offset == 0) {
        return 0;
    }
    do {
        --offset;
    } while (offset > 0 && (static_cast<unsigned char>(text_[offset]) & 0xC0) == 0x80);
    return utf16Length(std::string_view(text_).substr(0, offset));
}

std::size_t TextEditing::characterEndAfter(std::size_t index) const {
    std::size_t offset = utf8OffsetOfUtf16Index(text_, index);
    if (offset < text_.size()) {
        do {
            ++offset;
        } while (offset < text_.size() &&
                 (static_cast<unsigned char>(text_[offset]) & 0xC0) == 0x80);
    }
    return utf16Length(std::string_view(text_).substr(0, offset));
}

NSRange TextEditing::rangeForDeleteBackward() const {
    if (selection_.length > 0) {
        return selection_;
    }
    const std::size_t start = characterStartBefore(selection_.location);
    return {start, selection_.location - start};
}

void TextEditing::replace(NSRange range, const std::string& replacement) {
    const std::size_t location = std::min(range.location, length());
    text_ = stringByReplacingCharactersInRange(text_, range, replacement);
    selection_ = {location + utf16Length(replacement), 0};
}

void TextEditing::moveLeft() {
    selection_ = {
        selection_.length > 0 ? selection_.location : characterStartBefore(selection_.location), 0};
}

void TextEditing::moveRight() {
    selection_ = {selection_.length > 0 ? selection_.end() : characterEndAfter(selection_.location),
                  0};
}

}  // namespace tarvik
