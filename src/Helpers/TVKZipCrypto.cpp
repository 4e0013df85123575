#include "Helpers/TVKZipCrypto.h"

#include <random>

namespace tarvik {

namespace {

// The cipher stirs its keys with one step of the reflected CRC-32 (polynomial 0xEDB88320),
// without the inversions that the checksum of a whole buffer adds around it.
constexpr std::array<std::uint32_t, 256> makeCrcTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t n = 0; n < 256; ++n) {
        std::uint32_t value = n;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1) ? (value >> 1) ^ 0xEDB88320u : value >> 1;
        }
        table[n] = value;
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> kCrcTable = makeCrcTable();

std::uint32_t crcStep(std::uint32_t crc, std::uint8_t byte) {
    return (crc >> 8) ^ kCrcTable[(crc ^ byte) & 0xFF];
}

}  // namespace

TVKZipCrypto::TVKZipCrypto(std::string_view password)
    : keys_{0x12345678u, 0x23456789u, 0x34567890u} {
    for (char c : password) {
        stir(static_cast<std::uint8_t>(c));
    }
}

std::uint8_t TVKZipCrypto::keyStreamByte() const {
    // The byte taken from the product depends only on the key's low 16 bits, and keeping just
    // those keeps the product within 32 bits.
    std::uint32_t temp = (keys_[2] | 2) & 0xFFFF;
    return static_cast<std::uint8_t>((temp * (temp ^ 1)) >> 8);
}

void TVKZipCrypto::stir(std::uint8_t plainByte) {
    keys_[0] = crcStep(keys_[0], plainByte);
    keys_[1] = (keys_[1] + (keys_[0] & 0xFF)) * 134775813u + 1;
    keys_[2] = crcStep(keys_[2], static_cast<std::uint8_t>(keys_[1] >> 24));
}

void TVKZipCrypto::encrypt(std::span<std::uint8_t> bytes) {
    for (std::uint8_t& byte : bytes) {
        std::uint8_t plain = byte;
        byte = plain ^ keyStreamByte();
        stir(plain);
    }
}

void TVKZipCrypto::decrypt(std::span<std::uint8_t> bytes) {
    for (std::uint8_t& byte : bytes) {
        byte ^= keyStreamByte();
        stir(byte);
    }
}

TVKZipCrypto::Header TVKZipCrypto::encryptedHeader(std::uint32_t crcOfPlainData) {
    // The random bytes keep equal data under equal passwords from encrypting alike; they come
    // from the system's entropy source, never from a seeded generator.
    std::random_device entropy;
    Header header{};
    for (std::size_t i = 0; i < kHeaderLength - 2; ++i) {
        header[i] = static_cast<std::uint8_t>(entropy());
    }
    header[kHeaderLength - 2] = static_cast<std::uint8_t>(crcOfPlainData >> 16);
    header[kHeaderLength - 1] = static_cast<std::uint8_t>(crcOfPlainData >> 24);
    encrypt(header);
    return header;
}

bool TVKZipCrypto::acceptsHeader(Header header, std::uint8_t checkByte) {
    decrypt(header);
    return header[kHeaderLength - 1] == checkByte;
}

}  // namespace tarvik
