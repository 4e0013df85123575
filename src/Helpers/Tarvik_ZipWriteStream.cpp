#include "Helpers/Tarvik_ZipWriteStream.h"

#include "Helpers/Tarvik_ZipException.h"

#include <fmt/format.h>
#include <minizip/zip.h>

#include <utility>

namespace tarvik {

Tarvik_ZipWriteStream::Tarvik_ZipWriteStream(void* zipFileStruct, std::string fileNameInZip)
    : zipFile_(zipFileStruct), fileNameInZip_(std::move(fileNameInZip)) {}

void Tarvik_ZipWriteStream::writeData(std::span<const std::uint8_t> data) {
    // minizip takes 32-bit lengths: of a longer buffer only (length mod 2^32) bytes are written.
    writeBytes(data.data(), static_cast<std::uint32_t>(data.size()));
}

void Tarvik_ZipWriteStream::writeBytes(const void* bytes, std::uint32_t length) {
    int result = zipWriteInFileInZip(static_cast<zipFile>(zipFile_), bytes, length);
    if (result < 0) {
        throw Tarvik_ZipException(
            result, fmt::format("Error in writing '{}' in the zipfile", fileNameInZip_));
    }
}

void Tarvik_ZipWriteStream::finishedWriting() {
    int result = zipCloseFileInZip(static_cast<zipFile>(zipFile_));
    if (result != ZIP_OK) {
        throw Tarvik_ZipException(
            result, fmt::format("Error in closing '{}' in the zipfile", fileNameInZip_));
    }
}

}  // namespace tarvik
