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
    utf8proc_ssize_t length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                           static_cast<utf8proc_ssize_t>(text.size()), &decomposed,
                                           static_cast<utf8proc_option_t>(UTF8PROC_STABLE |
                                                                          UTF8PROC_DECOMPOSE));
    if (length < 0) {
        return std::string(text);
    }
    std::string result(reinterpret_cast<const char*>(decomposed), static_cast<size_t>(length));
    std::free(decomposed);
    return result;
}

}  // namespace tarvik
