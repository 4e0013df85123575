#pragma once

#include "Helpers/TVKZipCrypto.h"

#include <zlib.h>

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace tarvik {

// Turns the stored bytes of a password entry, past its header, back into the plain data:
// decrypts them and, for a deflated entry, inflates them. It pulls stored bytes from a source
// as it needs them and keeps the CRC of what it gave out, so that the entry can be checked
// once all of it has been read.
class TVKZipEntryDecrypter {
  public:
    // Fills the span with up to its size of stored bytes; returns the count, 0 once the entry's
    // bytes are all read, or a negative code on failure.
    using Source = std::function<int(std::span<std::uint8_t>)>;

    // `cipher` has already taken the header. `length` and `crc32` are the entry's own.
    TVKZipEntryDecrypter(TVKZipCrypto cipher, bool deflated, std::uint64_t length,
                         std::uint32_t crc32);
    ~TVKZipEntryDecrypter();
    TVKZipEntryDecrypter(const TVKZipEntryDecrypter&) = delete;
    TVKZipEntryDecrypter& operator=(const TVKZipEntryDecrypter&) = delete;

    // Fills `plain` as far as the entry goes; returns the count (0 at the end of the entry), or
    // the source's negative code, or zlib's when the data does not inflate.
    std::int64_t read(std::span<std::uint8_t> plain, const Source& source);

    // Whether the whole entry has been given out, so that its CRC can be checked.
    bool readWholeEntry() const { return ended_ || length_ >= expectedLength_; }
    bool dataMatchesEntry() const { return crc_ == expectedCrc_ && length_ == expectedLength_; }

  private:
    // Moves what the input holds into `plain`; returns the count or zlib's error.
    std::int64_t takeFromInput(std::span<std::uint8_t> plain);

    TVKZipCrypto cipher_;
    bool deflated_;
    std::uint64_t expectedLength_;
    std::uint32_t expectedCrc_;
    z_stream stream_{};  // its input fields track the decrypted input in both modes
    std::vector<std::uint8_t> input_;
    bool ended_ = false;
    std::uint32_t crc_ = 0;
    std::uint64_t length_ = 0;
};

}  // namespace tarvik
