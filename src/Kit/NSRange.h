#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tarvik {

// A run of text as the toolkit counts it: in UTF-16 code units, as the phone's strings do, so
// that ranges handed to text delegates mean what they mean there. Text itself is kept in UTF-8.
struct NSRange {
    std::size_t location = 0;
    std::size_t length = 0;

    // One past the last unit; never wraps around, even for a location of NSNotFound.
    std::size_t end() const {
        return length > static_cast<std::size_t>(-1) - location ? static_cast<std::size_t>(-1)
                                                                : location + length;
    }
    bool operator==(const NSRange&) const = default;
};

inline constexpr std::size_t NSNotFound = static_cast<std::size_t>(-1);

// The length of UTF-8 `text` in UTF-16 code units.
std::size_t utf16Length(std::string_view text);
// The byte offset in UTF-8 `text` of UTF-16 index `index`, clamped to the text's end. An index
// inside a surrogate pair counts as the start of its character.
std::size_t utf8OffsetOfUtf16Index(std::string_view text, std::size_t index);
// `text` with the characters of `range` (clamped to the text) replaced by `replacement`.
std::string stringByReplacingCharactersInRange(std::string_view text, NSRange range,
                                               std::string_view replacement);
// The first occurrence of `needle` in `text`; {NSNotFound, 0} when there is none.
NSRange rangeOfString(std::string_view text, std::string_view needle);

}  // namespace tarvik
