#include "Helpers/TVKZipEntryEncrypter.h"

#include <algorithm>
#include <limits>
#include <new>

namespace tarvik {

namespace {

constexpr std::size_t kBufferLength = 64 * 1024;
// The memory level minizip deflates its own entries with.
constexpr int kDeflateMemoryLevel = 8;
// zlib counts a single pass in 32 bits.
constexpr std::size_t kLargestPiece = std::numeric_limits<uInt>::max();

}  // namespace

TVKZipEntryEncrypter::TVKZipEntryEncrypter(std::string_view password, std::int32_t compressionLevel,
                                           std::uint32_t crcOfPlainData)
    : cipher_(password),
      header_(cipher_.encryptedHeader(crcOfPlainData)),
      declaredCrc_(crcOfPlainData),
      deflating_(compressionLevel != 0),
      buffer_(kBufferLength) {
    // Negative window bits: a raw deflate stream, without zlib's own header and trailer, as zip
    // entries hold it. The level has been checked, so only memory can be missing here.
    if (deflating_ && deflateInit2(&stream_, compressionLevel, Z_DEFLATED, -MAX_WBITS,
                                   kDeflateMemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::bad_alloc();
    }
}

TVKZipEntryEncrypter::~TVKZipEntryEncrypter() {
    if (deflating_) {
        deflateEnd(&stream_);
    }
}

void TVKZipEntryEncrypter::write(std::span<const std::uint8_t> plain, const Sink& sink) {
    crc_ = static_cast<std::uint32_t>(crc32_z(crc_, plain.data(), plain.size()));
    length_ += plain.size();
    while (!plain.empty()) {
        std::size_t pieceLength =
            std::min(plain.size(), deflating_ ? kLargestPiece : buffer_.size());
        std::span<const std::uint8_t> piece = plain.first(pieceLength);
        if (deflating_) {
            deflatePiece(piece, Z_NO_FLUSH, sink);
        } else {
            std::copy(piece.begin(), piece.end(), buffer_.begin());
            emit(std::span(buffer_).first(pieceLength), sink);
        }
        plain = plain.subspan(pieceLength);
    }
}

void TVKZipEntryEncrypter::finish(const Sink& sink) {
    if (deflating_) {
        deflatePiece({}, Z_FINISH, sink);
    }
    // A stored entry without data still carries its header.
    emit({}, sink);
}

void TVKZipEntryEncrypter::deflatePiece(std::span<const std::uint8_t> plain, int flush,
                                        const Sink& sink) {
    stream_.next_in = const_cast<Bytef*>(plain.data());
    stream_.avail_in = static_cast<uInt>(plain.size());
    int result = Z_OK;
    // Deflate has taken all the input once it leaves room in the output; on finishing, it
    // has also written all it held once it reports the end of the stream.
    do {
        stream_.next_out = buffer_.data();
        stream_.avail_out = static_cast<uInt>(buffer_.size());
        result = deflate(&stream_, flush);
        emit(std::span(buffer_).first(buffer_.size() - stream_.avail_out), sink);
    } while (flush == Z_FINISH ? result == Z_OK : stream_.avail_out == 0);
}

void TVKZipEntryEncrypter::emit(std::span<std::uint8_t> bytes, const Sink& sink) {
    if (!headerEmitted_) {
        headerEmitted_ = true;
        sink(header_);
    }
    if (!bytes.empty()) {
        cipher_.encrypt(bytes);
        sink(bytes);
    }
}

}  // namespace tarvik
