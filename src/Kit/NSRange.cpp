#include "Kit/NSRange.h"

#include <algorithm>

namespace tarvik {

namespace {

// The number of bytes of the UTF-8 sequence that starts with `lead`, and the UTF-16 code units
// it becomes. A stray continuation byte counts as one unit, as its replacement character would.
struct SequenceSize {
    std::size_t bytes;
    std::size_t units;
};

SequenceSize sequenceAt(std::string_view text, std::size_t offset) {
    const auto lead = static_cast<unsigned char>(text[offset]);
    std::size_t bytes = 1;
    if (lead >= 0xF0) {
        bytes = 4;
    } else if (lead >= 0xE0) {
        bytes = 3;
    } else if (lead >= 0xC0) {
        bytes = 2;
    }
    bytes = std::min(bytes, text.size() - offset);
    return {bytes, lead >= 0xF0 ? 2u : 1u};
}

}  // namespace

std::size_t utf16Length(std::string_view text) {
    std::size_t units = 0;
    for (std::size_t offset = 0; offset < text.size();) {
        const SequenceSize size = sequenceAt(text, offset);
        units += size.units;
        offset += size.bytes;
    }
    return units;
}

std::size_t utf8OffsetOfUtf16Index(std::string_view text, std::size_t index) {
    std::size_t units = 0;
    std::size_t offset = 0;
    while (offset < text.size()) {
        const SequenceSize size = sequenceAt(text, offset);
        if (units + size.units > index) {
            break;
        }
        units += size.units;
        offset += size.bytes;
    }
    return offset;
}

std::string stringByReplacingCharactersInRange(std::string_view text, NSRange range,
                                               std::string_view replacement) {
    const std::size_t start = utf8OffsetOfUtf16Index(text, range.location);
    const std::size_t end = utf8OffsetOfUtf16Index(text, range.end());
    std::string result(text.substr(0, start));
    result += replacement;
    result += text.substr(end);
    return result;
}

NSRange rangeOfString(std::string_view text, std::string_view needle) {
    const std::size_t offset = needle.empty() ? std::string_view::npos : text.find(needle);
    if (offset == std::string_view::npos) {
        return {NSNotFound, 0};
    }
    return {utf16Length(text.substr(0, offset)), utf16Length(needle)};
}

}  // namespace tarvik
