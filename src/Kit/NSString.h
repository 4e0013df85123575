#pragma once

#include <string>
#include <string_view>

namespace tarvik {

// Whether `character` is in the phone's whitespace-and-newline set: the Unicode space
// separators (general category Z: U+0020, U+00A0, U+1680, U+2000 to U+200A, U+202F, U+205F,
// U+3000, and the line and paragraph separators U+2028, U+2029), tab, U+000A to U+000D and
// U+0085.
bool isWhitespaceOrNewlineCharacter(char32_t character);

// UTF-8 `text` without the whitespace-and-newline characters at its start and end, as the
// phone's `stringByTrimmingCharactersInSet:` with `whitespaceAndNewlineCharacterSet` gives
// it. Characters inside the text are kept, and so are bytes that are not valid UTF-8.
std::string stringByTrimmingWhitespaceAndNewlineCharacters(std::string_view text);

}  // namespace tarvik
