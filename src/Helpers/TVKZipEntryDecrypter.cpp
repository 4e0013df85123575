#include "Helpers/TVKZipEntryDecrypter.h"

#include <algorithm>
#include <limits>
#include <new>

namespace tarvik {

namespace {

constexpr std::size_t kInputLength = 64 * 1024;

}  // namespace

TVKZipEntryDecrypter::TVKZipEntryDecrypter(TVKZipCrypto cipher, bool deflated, std::uint64_t length,
                                           std::uint32_t crc32)
    : cipher_(cipher),
      deflated_(deflated),
      expectedLength_(length),
      expectedCrc_(crc32),
      input_(kInputLength) {
    // Negative window bits: zip entries hold raw deflate data, without zlib's header.
    if (deflated_ && inflateInit2(&stream_, -MAX_WBITS) != Z_OK) {
        throw std::bad_alloc();
    }
}

TVKZipEntryDecrypter::~TVKZipEntryDecrypter() {
    if (deflated_) {
        inflateEnd(&stream_);
    }
}

std::int64_t TVKZipEntryDecrypter::read(std::span<std::uint8_t> plain, const Source& source) {
    std::size_t filled = 0;
    while (filled < plain.size() && !ended_) {
        if (stream_.avail_in == 0) {
            int count = source(input_);
            if (count < 0) {
                return count;
            }
            if (count == 0) {
                // Deflated data ends with a mark of its own; running out of bytes before it
                // is damage (or a wrong password that passed the header check).
                if (deflated_) {
                    return Z_DATA_ERROR;
                }
                ended_ = true;
                break;
            }
            std::span<std::uint8_t> received = std::span(input_).first(static_cast<size_t>(count));
            cipher_.decrypt(received);
            stream_.next_in = received.data();
            stream_.avail_in = static_cast<uInt>(received.size());
        }
        std::int64_t taken = takeFromInput(plain.subspan(filled));
        if (taken < 0) {
            return taken;
        }
        filled += static_cast<std::size_t>(taken);
    }
    crc_ = static_cast<std::uint32_t>(crc32_z(crc_, plain.data(), filled));
    length_ += filled;
    return static_cast<std::int64_t>(filled);
}

std::int64_t TVKZipEntryDecrypter::takeFromInput(std::span<std::uint8_t> plain) {
    // zlib counts a single pass in 32 bits.
    uInt room =
        static_cast<uInt>(std::min<std::size_t>(plain.size(), std::numeric_limits<uInt>::max()));
    if (!deflated_) {
        uInt count = std::min(room, stream_.avail_in);
        std::copy_n(stream_.next_in, count, plain.data());
        stream_.next_in += count;
        stream_.avail_in -= count;
        return count;
    }
    stream_.next_out = plain.data();
    stream_.avail_out = room;
    int result = inflate(&stream_, Z_NO_FLUSH);
    if (result == Z_STREAM_END) {
        ended_ = true;
    } else if (result != Z_OK && result != Z_BUF_ERROR) {
        // Raw inflate asks for no dictionary; any other answer is damaged data.
        return result < 0 ? result : Z_DATA_ERROR;
    }
    return room - stream_.avail_out;
}

}  // namespace tarvik
