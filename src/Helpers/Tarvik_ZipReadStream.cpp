#include "Helpers/Tarvik_ZipReadStream.h"

#include "Helpers/Tarvik_ZipException.h"

#include <fmt/format.h>
#include <minizip/unzip.h>

#include <utility>

namespace tarvik {

Tarvik_ZipReadStream::Tarvik_ZipReadStream(void* unzFileStruct, std::string fileNameInZip)
    : unzFile_(unzFileStruct), fileNameInZip_(std::move(fileNameInZip)) {}

Data Tarvik_ZipReadStream::readDataOfLength(std::uint32_t length) {
    Data buffer(length, 0);
    int count = unzReadCurrentFile(static_cast<unzFile>(unzFile_), buffer.data(), length);
    if (count < 0) {
        throw Tarvik_ZipException(
            count, fmt::format("Error in reading '{}' in the zipfile", fileNameInZip_));
    }
    buffer.resize(static_cast<size_t>(count));
    return buffer;
}

void Tarvik_ZipReadStream::finishedReading() {
    int result = unzCloseCurrentFile(static_cast<unzFile>(unzFile_));
    if (result != UNZ_OK) {
        throw Tarvik_ZipException(
            result, fmt::format("Error in closing '{}' in the zipfile", fileNameInZip_));
    }
}

}  // namespace tarvik
