#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tarvik {

// The traditional stream cipher of zip archives (general-purpose flag bit 0 without the strong
// encryption bit). It is weak: known plaintext breaks it in minutes. The SDK offers it only so
// that password entries can be exchanged with the common zip tools.
//
// Three 32-bit keys start from fixed values and are stirred by every byte of the password,
// then by every plain byte that passes through; each key-stream byte is derived from the third.
class TVKZipCrypto {
  public:
    // Every encrypted entry starts with this many encrypted bytes: random ones, then check
    // bytes that let a reader tell a wrong password from the right one.
    static constexpr std::size_t kHeaderLength = 12;
    using Header = std::array<std::uint8_t, kHeaderLength>;

    explicit TVKZipCrypto(std::string_view password);

    void encrypt(std::span<std::uint8_t> bytes);  // in place
    void decrypt(std::span<std::uint8_t> bytes);  // in place

    // A header for an entry whose plain data has `crcOfPlainData`, encrypted: ten random bytes,
    // then the CRC's bytes 2 and 3, as readers expect of an entry whose CRC is in its header.
    Header encryptedHeader(std::uint32_t crcOfPlainData);

    // Decrypts an entry's header; true when it ends in `checkByte` (the CRC's high byte, or the
    // DOS time's high byte for an entry with a trailing data descriptor). A wrong password
    // passes this test once in 256 times, so the entry's CRC must still be checked.
    bool acceptsHeader(Header header, std::uint8_t checkByte);

    std::array<std::uint32_t, 3> keys() const { return keys_; }

  private:
    std::uint8_t keyStreamByte() const;
    void stir(std::uint8_t plainByte);

    std::array<std::uint32_t, 3> keys_;
};

}  // namespace tarvik
