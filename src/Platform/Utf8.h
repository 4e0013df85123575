#pragma once

#include <string>
#include <string_view>

namespace tarvik {

bool isValidUtf8(std::string_view text);

// The text with each byte that cannot be part of a valid UTF-8 sequence replaced by U+FFFD.
std::string withInvalidUtf8Replaced(std::string_view text);

// The text in Unicode canonical decomposed form (NFD). Text that is not valid UTF-8 is
// returned unchanged.
std::string decomposedUtf8(std::string_view text);

}  // namespace tarvik

namespace tarvik {

// Turns a byte stream that arrives in chunks into valid UTF-8 text: valid sequences are kept
// as they are, even when a chunk boundary splits one (its first bytes wait for the next chunk),
// and each byte that cannot be part of a valid sequence becomes U+FFFD.
class Utf8ChunkDecoder {
  public:
    std::string decode(std::string_view chunk);
    // What is still waiting for the rest of its sequence, as U+FFFD replacements.
    std::string finish();
    bool hasPendingBytes() const { return !pending_.empty(); }

  private:
    std::string pending_;
};

}  // namespace tarvik
