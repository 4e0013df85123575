#include "Platform/Utf8.h"

#include <utf8proc.h>

#include <cstdlib>

namespace tarvik {

bool isValidUtf8(std::string_view text) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    auto remaining = static_cast<utf8proc_ssize_t>(text.size());
    while (remaining > 0) {
        utf8proc_int32_t codepoint = 0;
        utf8proc_ssize_t length = utf8proc_iterate(bytes, remaining, &codepoint);
        if (length <= 0) {
            return false;
        }
        bytes += length;
        remaining -= length;
    }
    return true;
}

std::string decomposedUtf8(std::string_view text) {
    utf8proc_uint8_t* decomposed = nullptr;
    utf8proc_ssize_t length =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                     static_cast<utf8proc_ssize_t>(text.size()), &decomposed,
                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE));
    if (length < 0) {
        return std::string(text);
    }
    std::string result(reinterpret_cast<const char*>(decomposed), static_cast<size_t>(length));
    std::free(decomposed);
    return result;
}

}  // namespace tarvik

namespace tarvik {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Length of the sequence a lead byte starts, or 0 for a byte that cannot start one.
size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

// Whether `bytes`, shorter than the sequence its lead byte starts, can still become a valid
// sequence: continuation bytes only, and no overlong, surrogate or out-of-range form.
bool isValidPrefix(std::string_view bytes) {
    auto lead = static_cast<unsigned char>(bytes[0]);
    for (size_t k = 1; k < bytes.size(); ++k) {
        if ((static_cast<unsigned char>(bytes[k]) & 0xC0) != 0x80) {
            return false;
        }
    }
    if (bytes.size() >= 2) {
        auto second = static_cast<unsigned char>(bytes[1]);
        if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
            (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::string Utf8ChunkDecoder::decode(std::string_view chunk) {
    std::string bytes = pending_;
    bytes.append(chunk);
    pending_.clear();
    std::string text;
    text.reserve(bytes.size());
    size_t i = 0;
    while (i < bytes.size()) {
        auto lead = static_cast<unsigned char>(bytes[i]);
        if (lead < 0x80) {
            text += static_cast<char>(lead);
            ++i;
            continue;
        }
        size_t length = sequenceLength(lead);
        if (length == 0) {
            text += kReplacement;
            ++i;
            continue;
        }
        if (i + length > bytes.size()) {
            std::string_view tail(bytes.data() + i, bytes.size() - i);
            if (isValidPrefix(tail)) {
                pending_ = tail;  // the rest of the sequence comes with the next chunk
                break;
            }
            text += kReplacement;
            ++i;
            continue;
        }
        utf8proc_int32_t codepoint = 0;
        auto decoded = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(bytes.data() + i),
                                        static_cast<utf8proc_ssize_t>(length), &codepoint);
        if (decoded == static_cast<utf8proc_ssize_t>(length)) {
            text.append(bytes, i, length);
            i += length;
        } else {
            text += kReplacement;
            ++i;
        }
    }
    return text;
}

std::string withInvalidUtf8Replaced(std::string_view text) {
    Utf8ChunkDecoder decoder;
    std::string valid = decoder.decode(text);
    return valid + decoder.finish();
}

std::string Utf8ChunkDecoder::finish() {
    std::string text;
    for (size_t i = 0; i < pending_.size(); ++i) {
        text += kReplacement;
    }
    pending_.clear();
    return text;
}

}  // namespace tarvik
