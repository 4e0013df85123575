#include "Helpers/Tarvik_ZipReadStream.h"

#include "Helpers/TVKZipEntryDecrypter.h"
#include "Helpers/Tarvik_ZipException.h"

#include <fmt/format.h>
#include <minizip/unzip.h>

#include <utility>

namespace tarvik {

Tarvik_ZipReadStream::Tarvik_ZipReadStream(void* unzFileStruct, std::string fileNameInZip)
    : unzFile_(unzFileStruct), fileNameInZip_(std::move(fileNameInZip)) {}

Tarvik_ZipReadStream::Tarvik_ZipReadStream(void* unzFileStruct, std::string fileNameInZip,
                                           std::unique_ptr<TVKZipEntryDecrypter> decrypter)
    : unzFile_(unzFileStruct),
      fileNameInZip_(std::move(fileNameInZip)),
      decrypter_(std::move(decrypter)) {}

Tarvik_ZipReadStream::~Tarvik_ZipReadStream() = default;

Data Tarvik_ZipReadStream::readDataOfLength(std::uint32_t length) {
    Data buffer(length, 0);
    auto handle = static_cast<unzFile>(unzFile_);
    std::int64_t count = 0;
    if (decrypter_) {
        count = decrypter_->read(buffer, [handle](std::span<std::uint8_t> into) {
            return unzReadCurrentFile(handle, into.data(), static_cast<unsigned>(into.size()));
        });
    } else {
        count = unzReadCurrentFile(handle, buffer.data(), length);
    }
    if (count < 0) {
        throw Tarvik_ZipException(
            count, fmt::format("Error in reading '{}' in the zipfile", fileNameInZip_));
    }
    buffer.resize(static_cast<size_t>(count));
    return buffer;
}

void Tarvik_ZipReadStream::finishedReading() {
    // minizip checks the CRC of what it inflated itself; a raw entry's is checked here.
    int result = unzCloseCurrentFile(static_cast<unzFile>(unzFile_));
    if (result == UNZ_OK && decrypter_ && decrypter_->readWholeEntry() &&
        !decrypter_->dataMatchesEntry()) {
        result = UNZ_CRCERROR;
    }
    if (result != UNZ_OK) {
        throw Tarvik_ZipException(
            result, fmt::format("Error in closing '{}' in the zipfile", fileNameInZip_));
    }
}

}  // namespace tarvik
