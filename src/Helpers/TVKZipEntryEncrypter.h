#pragma once

#include "Helpers/TVKZipCrypto.h"

#include <zlib.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

namespace tarvik {

// Turns the plain data of a password entry into the bytes stored for it: the encryption header,
// then the data, raw-deflated or stored as it is, all encrypted. The stored bytes go to a sink
// in pieces no larger than a fixed buffer, so that data of any size passes through.
class TVKZipEntryEncrypter {
  public:
    using Sink = std::function<void(std::span<const std::uint8_t>)>;

    // Level 0 stores; any other level from -1 to 9 deflates at that level. `crcOfPlainData` is
    // the caller's CRC-32 of all the data it will write: the header's check bytes come from it.
    TVKZipEntryEncrypter(std::string_view password, std::int32_t compressionLevel,
                         std::uint32_t crcOfPlainData);
    ~TVKZipEntryEncrypter();
    TVKZipEntryEncrypter(const TVKZipEntryEncrypter&) = delete;
    TVKZipEntryEncrypter& operator=(const TVKZipEntryEncrypter&) = delete;

    void write(std::span<const std::uint8_t> plain, const Sink& sink);
    // Hands over what deflate still holds; call once, after the last write.
    void finish(const Sink& sink);

    std::uint32_t declaredCrc() const { return declaredCrc_; }
    std::uint32_t crcOfWrittenData() const { return crc_; }
    std::uint64_t lengthOfWrittenData() const { return length_; }

  private:
    void deflatePiece(std::span<const std::uint8_t> plain, int flush, const Sink& sink);
    // Encrypts the bytes in place and hands them over, after the header if it has not gone yet.
    void emit(std::span<std::uint8_t> bytes, const Sink& sink);

    TVKZipCrypto cipher_;
    TVKZipCrypto::Header header_;
    bool headerEmitted_ = false;
    std::uint32_t declaredCrc_;
    bool deflating_;
    z_stream stream_{};
    std::vector<std::uint8_t> buffer_;
    std::uint32_t crc_ = 0;
    std::uint64_t length_ = 0;
};

}  // namespace tarvik
