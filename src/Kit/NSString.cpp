#include "Kit/NSString.h"

#include <cstddef>
#include <optional>

namespace tarvik {

namespace {

struct Decoded {
    char32_t character;
    std::size_t bytes;
};

// The character whose UTF-8 sequence starts at `offset`; none for a byte that does not start a
// complete, well-formed sequence (such bytes are never trimmed).
std::optional<Decoded> decodeAt(std::string_view text, std::size_t offset) {
    const auto lead = static_cast<unsigned char>(text[offset]);
    std::size_t bytes = 0;
    char32_t character = 0;
    if (lead < 0x80) {
        return Decoded{lead, 1};
    } else if ((lead & 0xE0) == 0xC0) {
        bytes = 2;
        character = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        bytes = 3;
        character = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        bytes = 4;
        character = lead & 0x07;
    } else {
        return std::nullopt;
    }
    if (offset + bytes > text.size()) {
        return std::nullopt;
    }
    for (std::size_t i = 1; i < bytes; ++i) {
        const auto next = static_cast<unsigned char>(text[offset + i]);
        if ((next & 0xC0) != 0x80) {
            return std::nullopt;
        }
        character = (character << 6) | (next & 0x3F);
    }
    return Decoded{character, bytes};
}

bool isContinuationByte(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

}  // namespace

bool isWhitespaceOrNewlineCharacter(char32_t character) {
    switch (character) {
        case 0x0009:
        case 0x000A:
        case 0x000B:
        case 0x000C:
        case 0x000D:
        case 0x0020:
        case 0x0085:
        case 0x00A0:
        case 0x1680:
        case 0x2028:
        case 0x2029:
        case 0x202F:
        case 0x205F:
        case 0x3000:
            return true;
        default:
            return character >= 0x2000 && character <= 0x200A;
    }
}

std::string stringByTrimmingWhitespaceAndNewlineCharacters(std::string_view text) {
    std::size_t start = 0;
    while (start < text.size()) {
        const std::optional<Decoded> decoded = decodeAt(text, start);
        if (!decoded || !isWhitespaceOrNewlineCharacter(decoded->character)) {
            break;
        }
        start += decoded->bytes;
    }
    std::size_t end = text.size();
    while (end > start) {
        // Back to the start of the last sequence.
        std::size_t lead = end - 1;
        while (lead > start && isContinuationByte(text[lead])) {
            --lead;
        }
        const std::optional<Decoded> decoded = decodeAt(text, lead);
        if (!decoded || lead + decoded->bytes != end ||
            !isWhitespaceOrNewlineCharacter(decoded->character)) {
            break;
        }
        end = lead;
    }
    return std::string(text.substr(start, end - start));
}

}  // namespace tarvik
