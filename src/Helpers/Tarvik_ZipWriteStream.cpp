#include "Helpers/Tarvik_ZipWriteStream.h"

#include "Helpers/TVKZipEntryEncrypter.h"
#include "Helpers/Tarvik_ZipException.h"

#include <fmt/format.h>
#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <utility>

namespace tarvik {

Tarvik_ZipWriteStream::Tarvik_ZipWriteStream(void* zipFileStruct, std::string fileNameInZip)
    : zipFile_(zipFileStruct), fileNameInZip_(std::move(fileNameInZip)) {}

Tarvik_ZipWriteStream::Tarvik_ZipWriteStream(void* zipFileStruct, std::string fileNameInZip,
                                             std::unique_ptr<TVKZipEntryEncrypter> encrypter)
    : zipFile_(zipFileStruct),
      fileNameInZip_(std::move(fileNameInZip)),
      encrypter_(std::move(encrypter)) {}

Tarvik_ZipWriteStream::~Tarvik_ZipWriteStream() = default;

void Tarvik_ZipWriteStream::writeData(std::span<const std::uint8_t> data) {
    // minizip takes 32-bit lengths: of a longer buffer only (length mod 2^32) bytes are written.
    writeBytes(data.data(), static_cast<std::uint32_t>(data.size()));
}

void Tarvik_ZipWriteStream::writeBytes(const void* bytes, std::uint32_t length) {
    std::span<const std::uint8_t> plain(static_cast<const std::uint8_t*>(bytes), length);
    if (encrypter_) {
        encrypter_->write(plain, [this](auto stored) { writeStoredBytes(stored); });
    } else {
        writeStoredBytes(plain);
    }
}

void Tarvik_ZipWriteStream::writeStoredBytes(std::span<const std::uint8_t> bytes) {
    int result = zipWriteInFileInZip(static_cast<zipFile>(zipFile_), bytes.data(),
                                     static_cast<unsigned>(bytes.size()));
    if (result < 0) {
        throw Tarvik_ZipException(
            result, fmt::format("Error in writing '{}' in the zipfile", fileNameInZip_));
    }
}

void Tarvik_ZipWriteStream::finishedWriting() {
    int result = ZIP_OK;
    if (encrypter_) {
        encrypter_->finish([this](auto stored) { writeStoredBytes(stored); });
        // A raw entry's sizes and CRC are the caller's to give.
        result = zipCloseFileInZipRaw(static_cast<zipFile>(zipFile_),
                                      encrypter_->lengthOfWrittenData(), encrypter_->declaredCrc());
        if (result == ZIP_OK && encrypter_->crcOfWrittenData() != encrypter_->declaredCrc()) {
            result = UNZ_CRCERROR;
        }
    } else {
        result = zipCloseFileInZip(static_cast<zipFile>(zipFile_));
    }
    if (result != ZIP_OK) {
        throw Tarvik_ZipException(
            result, fmt::format("Error in closing '{}' in the zipfile", fileNameInZip_));
    }
}

}  // namespace tarvik
